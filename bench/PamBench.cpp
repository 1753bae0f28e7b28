// Sign-ins through PAM stacks of this bench's own, with the module's copy for tests, its helper,
// the agent on a screen and a server; each beside the least that such a sign-in must do.
#include "Groups.h"
#include "Programs.h"
#include "ServerCommunicator.h"
#include "TlsEndpoints.h"

#include <fmt/format.h>
#include <security/pam_appl.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace quorl::bench {
namespace {

using test::AgentStage;
using test::Subprocess;
using test::TestSandbox;

// An account that every system has and that the module does not take for a local one.
constexpr const char* user = "nobody";
constexpr const char* record = "nobody@EXAMPLE";
constexpr Turns pages{10};

struct SignIn {
    int status = PAM_SYSTEM_ERR;
    double begun = 0;     ///< pam_authenticate
    double prompted = 0;  ///< the first prompt, 0 when there was none
    double ended = 0;
    double whole = 0;  ///< from pam_start to pam_end
    double took() const { return ended - begun; }
};

// Every prompt is left without an answer, which counts as no wrong code.
int notePrompt(int, const pam_message**, pam_response**, void* signIn) {
    static_cast<SignIn*>(signIn)->prompted = now();
    return PAM_CONV_ERR;
}

/// The stacks: "plain" asks for nothing, the others have the module's line as well. The module's
/// copy looks into a folder whose name takes the place of the built-in one.
class Stacks {
  public:
    Stacks() {
        std::string folder = KESH_TEST_ROOT;
        folder.replace(folder.size() - 6, 6, "XXXXXX");
        root_ = mkdtemp(folder.data());
        std::string module = TestSandbox::read(KESH_TEST_MODULE);
        for (auto at = module.find(KESH_TEST_ROOT); at != module.npos;
             at = module.find(KESH_TEST_ROOT))
            module.replace(at, root_.size(), root_);
        write("pam_kesh.so", module);
        write("passwd", "root:x:0:0:root:/root:/bin/sh\n");
        write("shadow", "root:*:19000:0:99999:7:::\n");
        write("pam_kesh.conf", "page = /painted\n");
        // The module starts its helper with an empty environment.
        std::string helper =
            "#!/bin/sh\nexport SSL_CERT_DIR='" + test::certificateFolder() + "/certs'";
        for (const char* name : {"QUORL_SUPPORT_BASE", "QUORL_RUNTIME_DIR", "QUORL_SYSTEM_ROOT",
                                 "QUORL_GUARD_DIR", "QUORL_AGENT_ACCOUNT"})
            helper += fmt::format(" {}='{}'", name, getenv(name));
        write("helper", helper + "\nexec " QUORL_BINARY_DIR "/bin/kesh-verify\n");
        chmod((root_ + "/helper").c_str(), 0700);
        const std::string permit = "auth required pam_permit.so\n";
        write("pam.d/plain", permit);
        for (const char* service : {"login", "sshd", "lightdm"})
            write(std::string("pam.d/") + service,
                  "auth required " + root_ + "/pam_kesh.so\n" + permit);
    }
    ~Stacks() { std::filesystem::remove_all(root_); }
    Stacks(const Stacks&) = delete;
    Stacks& operator=(const Stacks&) = delete;

    SignIn signIn(const char* service, const char* name) const {
        SignIn signIn;
        const pam_conv conversation{notePrompt, &signIn};
        pam_handle_t* pamh = nullptr;
        const double start = now();
        expect(pam_start_confdir(service, name, &conversation, (root_ + "/pam.d").c_str(), &pamh) ==
                   PAM_SUCCESS,
               "PAM cannot be started");
        signIn.begun = now();
        signIn.status = pam_authenticate(pamh, 0);
        signIn.ended = now();
        pam_end(pamh, signIn.status);
        signIn.whole = now() - start;
        return signIn;
    }

  private:
    void write(const std::string& name, const std::string& text) const {
        TestSandbox::write(root_ + "/" + name, text);
    }
    std::string root_;
};

SignIn granted(SignIn signIn) {
    expect(signIn.status == PAM_SUCCESS, "a sign-in was denied");
    return signIn;
}

void benchExempt(Figures& figures, const Stacks& stacks) {
    const auto add = [&](const char* figure, auto measured, Turns turns) {
        const Samples samples =
            compare([&] { return measured(granted(stacks.signIn("login", "root"))); },
                    [&] { return measured(granted(stacks.signIn("plain", "root"))); }, turns);
        const double floor = percentile(samples.floor);
        figures.add(figure, percentile(samples.ours) - floor, us);
        figures.add(std::string(figure) + ".floor", floor, us);
    };
    // What the module's line adds; the floor is the stack without it.
    add("agent.pam.exempt", [](const SignIn& signIn) { return signIn.took(); }, {1000});
    add("agent.pam.exempt.whole", [](const SignIn& signIn) { return signIn.whole; }, {200});
}

// From the program's start to its end, without the loop that looks for the end now and then.
double untilExit(const Subprocess::Options& options) {
    const double start = now();
    Subprocess program(options);
    siginfo_t end{};
    waitid(P_PID, static_cast<id_t>(program.pid()), &end, WEXITED | WNOWAIT);
    const double took = now() - start;
    expect(program.wait() == 0, "a program failed");
    return took;
}

// To the page on the screen and its answer back: the page answers as soon as it is seen.
void benchWindow(Figures& figures, AgentStage& stage, const Stacks& stacks) {
    const std::string request = stage.sandbox.root() / "page-request";
    TestSandbox::write(request,
                       R"({"MFA_REQUEST_URL": "/painted", "POST_DATA": "USER_NAME=nobody"})");
    const Subprocess::Options client = {.command = {QUORL_BINARY_DIR "/bin/kesh-request", "--json",
                                                    "--runtime-dir", stage.sandbox.root() / "run"},
                                        .input = request};
    const auto ours = [&] {
        settle();
        return granted(stacks.signIn("lightdm", user)).took();
    };
    const auto floor = [&] {
        settle();
        const double page = untilExit(client);
        const double start = now();
        const auto reply =
            ServerCommunicator(systemClock())
                .sendRequestWithAuthHeader("/RestAPI/logonagent/mfa/getOfflineEnrollment", "POST",
                                           nullptr, "");
        expect(reply && !member(*reply, "ERROR_MSG"), "the server refuses a signed call");
        return page + now() - start;
    };
    figures.add("agent.pam.window", compare(ours, floor, pages), ms);
}

void benchText(Figures& figures, AgentStage& stage, const Stacks& stacks) {
    const std::string path = stage.sandbox.root() / "asked";
    const FileDescriptor pipe = makePipe(path);
    const auto ours = [&] {
        const SignIn signIn = stacks.signIn("sshd", user);
        expect(signIn.prompted > 0, "no code was asked for");
        return signIn.prompted - signIn.begun;
    };
    const auto floor = [&] {
        char byte = 0;
        const double start = now();
        Subprocess helper(
            {.command = {QUORL_BINARY_DIR "/bin/minimal-helper", record}, .output = path});
        expect(read(pipe.get(), &byte, 1) == 1, "the least helper does nothing");
        const double took = now() - start;
        helper.wait();
        return took;
    };
    figures.add("agent.pam.text.first", compare(ours, floor, {40}), ms);
}

// A sign-in in the offline page, until it is ready and from Return to its end; "ended" and the
// moment from which "ready" counts are the sign-in's own.
struct OfflineSignIn {
    double ready;
    double verdict;
};
template <class Run>
OfflineSignIn signInOffline(AgentStage& stage, Run run) {
    settle();
    LineReader log(stage);
    double begun = 0;
    auto ended = std::async(std::launch::async, [&] {
        const SignIn signIn = run();
        begun = signIn.begun;
        return signIn.ended;
    });
    log.await(offlinePageReady);
    const double ready = now();
    stage.type(AgentStage::code(userSecret));
    const double verdict = untilEnded(stage, std::move(ended));
    return {ready - begun, verdict};
}

void benchOfflineWindow(Figures& figures, AgentStage& stage, const Stacks& stacks) {
    // The server never answers.
    const Connection silent = listenOn(stage.port());
    const auto module = [&] { return granted(stacks.signIn("lightdm", user)); };
    const auto agentAlone = [&] {
        SignIn signIn{.begun = now()};
        const Value answer =
            ask({{"OFFLINE_MFA", true}, {"USER_NAME", user}, {"DOMAIN_NAME", "EXAMPLE"}});
        expect(stringValue(answer, "MFA_AUTH_RESULT") == "SUCCESS", "a right code was refused");
        signIn.ended = now();
        return signIn;
    };
    // What the server is given to answer.
    constexpr double probe = 3e9;
    Samples ready;
    const auto measure = [&](std::vector<double>& readyAfter, double least, auto run) {
        return [&stage, &readyAfter, least, run] {
            const OfflineSignIn measured = signInOffline(stage, run);
            readyAfter.push_back(least + measured.ready);
            return measured.verdict;
        };
    };
    const Samples verdict =
        compare(measure(ready.ours, 0, module), measure(ready.floor, probe, agentAlone), pages);
    figures.add("agent.pam.silent", ready, s);
    figures.add("agent.pam.verdict", verdict, ms);
}

}  // namespace

void benchPam(Figures& figures) {
    AgentStage stage;
    const Stacks stacks;
    benchExempt(figures, stacks);
    test::trustTestAuthority();
    serveThePage(stage);
    stage.startDisplay();
    enroll(stage, record);
    stage.startAgent();
    benchWindow(figures, stage, stacks);
    stage.stopServer();
    benchText(figures, stage, stacks);
    benchOfflineWindow(figures, stage, stacks);
    stage.agent().stop(SIGTERM);
}

}  // namespace quorl::bench
