# A throw-away Debian 12 root with real login programs, to install the packages in and log in to.
# Made once in build/login-root and never changed after that: each use puts a layer of its own over
# it, which goes with the use. Needs root. Sourced, from the project's folder.

login_root=$PWD/build/login-root

# What the packages name as what they need; the libraries that they are linked with; what lets people
# in; what drives it.
login_root_packages=(
    $(awk '/^Depends:|^ .*[,]?$/ { if (/^Depends:/) on = 1; if (on) print }
           /^[A-Z]/ && !/^Depends:/ { on = 0 }' debian/control |
          tr ',' '\n' | sed 's/^Depends://; s/(.*//; s/[$].*//' | grep -v '^ *kesh-common *$' | sort -u)
    libcurl4 libfmt9 libicu72 libplist3 libwebkit2gtk-4.1-0
    dbus libnss-extrausers lightdm lightdm-gtk-greeter login openssh-client openssh-server passwd sudo xvfb
    imagemagick oathtool openssl procps python3 x11-utils xdotool
)

# Where this machine has its own packages from.
machine_sources() {
    local file
    for file in /etc/apt/sources.list.d/debian.sources /etc/apt/sources.list; do
        [ ! -s "$file" ] || { echo "$file"; return; }
    done
}

make_login_root() {
    local wanted="${login_root_packages[*]}" made=$login_root.part
    [ "$(cat "$login_root.holds" 2>/dev/null)" != "$wanted" ] || return 0
    echo "making a throw-away root in build/login-root"
    rm -rf "$login_root" "$login_root.holds" "$made"
    mkdir -p "$(dirname "$login_root")"
    # shellcheck disable=SC2046
    mmdebstrap --quiet --variant=minbase --include="${wanted// /,}" bookworm "$made" \
        $(machine_sources) >"$login_root.log" 2>&1 || {
        tail -n 20 "$login_root.log" >&2
        echo "the throw-away root could not be made" >&2
        return 1
    }
    mv "$made" "$login_root"
    echo "$wanted" >"$login_root.holds"
}

# in_login_root OUTPUT COMMAND... : runs the command with a fresh layer over the root as its whole
# machine: mounts, processes, System V IPC, host name and network (the loopback alone) of its own, a
# clean environment, empty /run and /tmp, this project at /project (read only), OUTPUT at /output.
# All that is started in it ends with the command.
#
# pivot_root and not chroot: below a chroot "/" is no mount point, bubblewrap gives up, and a web
# engine without its sandbox has nothing to show.
in_login_root() {
    local output
    mkdir -p "$1"
    output=$(realpath "$1")
    shift
    unshare --kill-child --mount --pid --fork --uts --ipc --net \
        bash -euc '
        lower=$1 project=$2 output=$3
        shift 3
        mount --make-rprivate /
        layer=$lower.layer
        mkdir -p "$layer"
        mount -t tmpfs tmpfs "$layer"
        mkdir "$layer/upper" "$layer/work" "$layer/root"
        root=$layer/root
        mount -t overlay overlay \
            -o "lowerdir=$lower,upperdir=$layer/upper,workdir=$layer/work" "$root"
        mount -t proc proc "$root/proc"
        mount --rbind /sys "$root/sys"
        mount -t tmpfs -o mode=755 tmpfs "$root/dev"
        for device in null zero full random urandom tty; do
            touch "$root/dev/$device"
            mount --bind "/dev/$device" "$root/dev/$device"
        done
        mkdir "$root/dev/pts" "$root/dev/shm"
        mount -t devpts -o newinstance,ptmxmode=0666,mode=620,gid=5 devpts "$root/dev/pts"
        ln -s pts/ptmx "$root/dev/ptmx"
        ln -s /proc/self/fd "$root/dev/fd"
        mount -t tmpfs tmpfs "$root/dev/shm"
        mount -t tmpfs -o mode=755 tmpfs "$root/run"
        mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
        mkdir "$root/run/dbus" "$root/run/lightdm" "$root/run/lock" "$root/run/sshd"
        mkdir "$root/project" "$root/output" "$root/before"
        mount --bind -o ro "$project" "$root/project"
        mount --bind "$output" "$root/output"
        hostname workstation
        cd "$root"
        pivot_root . before
        cd /
        umount -l /before
        rmdir /before
        # As process 1 bash reaps what others leave behind; the command in its place would not.
        env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
            LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive PYTHONDONTWRITEBYTECODE=1 "$@"
        exit $?
    ' login-root "$login_root" "$PWD" "$output" "$@"
}
