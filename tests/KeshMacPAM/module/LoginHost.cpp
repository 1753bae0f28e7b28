#include "LoginHost.h"

#include <nlohmann/json.hpp>
#include <security/pam_appl.h>
#include <security/pam_modules.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

namespace {

std::string& journal() {
    static std::string lines;
    return lines;
}

}  // namespace

/// Stands before the library's own for the module: the journal of this process.
extern "C" __attribute__((visibility("default"))) void pam_syslog(const pam_handle_t*, int,
                                                                  const char* format, ...) {
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    journal() += std::string(line) + "\n";
}

namespace quorl::test {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Played, status, credentials, milliseconds, prompts, log,
                                   leftOpen, children, sameSignals)

namespace {

namespace fs = std::filesystem;

struct Talk {
    Person person;
    std::vector<std::string> prompts;
};

int converse(int count, const pam_message** messages, pam_response** responses, void* data) {
    auto& talk = *static_cast<Talk*>(data);
    auto* answers = static_cast<pam_response*>(std::calloc(count, sizeof(pam_response)));
    *responses = answers;
    for (int i = 0; i < count; ++i) {
        const int style = messages[i]->msg_style;
        const bool question = style == PAM_PROMPT_ECHO_ON || style == PAM_PROMPT_ECHO_OFF;
        talk.prompts.push_back(std::to_string(style) + " " + messages[i]->msg);
        if (!question)
            continue;
        // As at a terminal, whose three descriptors are one: whatever stands there instead gets it.
        for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
            (void)!write(fd, "\n", 1);
        std::this_thread::sleep_for(std::exchange(talk.person.thinks, {}));
        switch (talk.person.manner) {
            case Person::Manner::Fails:
                std::free(answers);
                *responses = nullptr;
                return PAM_CONV_ERR;
            case Person::Manner::Nothing:
            case Person::Manner::NoFunction:
                break;
            case Person::Manner::Megabyte:
                answers[i].resp = strdup(std::string(1 << 20, '1').c_str());
                break;
            case Person::Manner::Answers:
                answers[i].resp = strdup(talk.person.typed.c_str());
                break;
        }
    }
    return PAM_SUCCESS;
}

int openDescriptors() {
    return static_cast<int>(
        std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

std::string signals() {
    std::ifstream status("/proc/self/status");
    std::string kept;
    for (std::string line; std::getline(status, line);)
        if (line.starts_with("SigBlk") || line.starts_with("SigIgn") || line.starts_with("SigCgt"))
            kept += line;
    return kept;
}

std::string playHere(const ModuleSandbox& sandbox, const Scene& scene) {
    Talk talk{scene.person, {}};
    pam_conv conversation{converse, &talk};
    if (scene.person.manner == Person::Manner::NoFunction)
        conversation.conv = nullptr;
    pam_handle_t* pamh = nullptr;
    const std::string stacks = sandbox.path("pam.d");
    Played played;
    const auto before = openDescriptors();
    scene.prepare();
    const std::string signalsBefore = signals();
    if (pam_start_confdir(scene.service.c_str(), scene.user.c_str(), &conversation, stacks.c_str(),
                          &pamh) != PAM_SUCCESS)
        return "";
    const auto begin = std::chrono::steady_clock::now();
    for (int call = 0; call < scene.calls; ++call)
        played.status = pam_authenticate(pamh, 0);
    const auto took = std::chrono::steady_clock::now() - begin;
    played.milliseconds = std::chrono::floor<std::chrono::milliseconds>(took).count();
    played.sameSignals = signals() == signalsBefore;
    played.children = waitpid(-1, nullptr, __WALL | WNOHANG) >= 0;
    played.credentials = pam_setcred(pamh, PAM_ESTABLISH_CRED);
    pam_end(pamh, played.status);
    played.leftOpen = openDescriptors() - before;
    played.prompts = talk.prompts;
    played.log = journal();
    return nlohmann::json(played).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void replaceAll(std::string& bytes, const std::string& from, const std::string& to) {
    for (auto at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at))
        bytes.replace(at, from.size(), to);
}

}  // namespace

ModuleSandbox::ModuleSandbox() {
    std::string folder = KESH_TEST_ROOT;
    const std::string placeholder = folder;
    folder.replace(folder.size() - 6, 6, "XXXXXX");
    root_ = mkdtemp(folder.data());
    std::string module = TestSandbox::read(KESH_TEST_MODULE);
    replaceAll(module, placeholder, root_);
    TestSandbox::write(path("pam_kesh.so"), module);
    TestSandbox::write(path("passwd"),
                       "root:x:0:0:root:/root:/bin/bash\n"
                       "daemon:x:1:1::/:/usr/sbin/nologin\n"
                       "bin:x:4242:2::/:/usr/sbin/nologin\n"
                       "sys:x:3:3::/:/usr/sbin/nologin\n" +
                           std::string(20000, 'x') + "\nsync:x:4:65534::/:/bin/sync");
    TestSandbox::write(path("shadow"),
                       "root:*:19000:0:99999:7:::\n"
                       "daemon:$y$j9T$0123456789abcdef$0123456789:19000::::::\n"
                       "bin:$y$j9T$0123456789abcdef$0123456789:19000::::::\n"
                       "sys:!$y$j9T$0123456789abcdef$0123456789:19000::::::\n"
                       "sync:$6$0123456789abcdef$0123456789:19000::::::\n");
    fs::copy_file(KESH_TEST_HELPER, path("helper"));
    for (const char* service : {"login", "sshd", "sudo-i", "cron"})
        stack(service, "auth required MODULE");
    stack("other", "auth required pam_deny.so");
}

bool ModuleSandbox::helperLives() const {
    const std::string text = seen();
    const auto at = text.find("pid=");
    if (at == std::string::npos)
        return false;
    // Where nobody reaps orphans, one that has ended stays as a zombie.
    const std::string stat =
        TestSandbox::read("/proc/" + std::to_string(std::stoi(text.substr(at + 4))) + "/stat");
    return !stat.empty() && stat.find(") Z ") == std::string::npos;
}

void ModuleSandbox::stack(const std::string& service, const std::string& lines) const {
    std::string text = lines + "\n";
    replaceAll(text, "MODULE", path("pam_kesh.so"));
    TestSandbox::write(path("pam.d/" + service), text);
}

LoginHost::LoginHost(const ModuleSandbox& sandbox, const Scene& scene) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return;
    pid_ = fork();
    if (pid_ == 0) {
        const int results = fcntl(ends[1], F_DUPFD_CLOEXEC, 100);
        close(ends[0]);
        close(ends[1]);
        const std::string text = playHere(sandbox, scene);
        _exit(write(results, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0
                                                                                            : 1);
    }
    close(ends[1]);
    results_ = ends[0];
}

LoginHost::LoginHost(LoginHost&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), results_(std::exchange(other.results_, -1)) {}

LoginHost::~LoginHost() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (results_ >= 0)
        close(results_);
}

Played LoginHost::wait() {
    std::string text;
    char part[4096];
    for (ssize_t got; (got = read(results_, part, sizeof part)) > 0;)
        text.append(part, static_cast<std::size_t>(got));
    waitpid(std::exchange(pid_, -1), nullptr, 0);
    const auto json = nlohmann::json::parse(text, nullptr, false);
    return json.is_object() ? json.get<Played>() : Played();
}

Played play(const ModuleSandbox& sandbox, const Scene& scene) {
    return LoginHost(sandbox, scene).wait();
}

}  // namespace quorl::test
