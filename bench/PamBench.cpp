// Sign-ins through PAM stacks of this bench's own, with the module's copy for tests, its helper,
// the agent on a screen and a server; each beside the least that such a sign-in must do.
#include "Figures.h"
#include "LoginHost.h"
#include "Programs.h"
#include "ServerCommunicator.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <security/pam_appl.h>

namespace quorl::bench {
namespace {

using test::AgentStage;
using test::ModuleSandbox;
using test::Subprocess;
using test::TestSandbox;

// An account that every system has and that the module does not take for a local one.
constexpr const char* user = "nobody";
constexpr const char* record = "nobody@EXAMPLE";
constexpr Turns pages{10};

struct SignIn {
    double begun = 0;     ///< pam_authenticate
    double prompted = 0;  ///< the first prompt, 0 when there was none
    double ended = 0;
    double took = 0;
    double whole = 0;  ///< from pam_start to pam_end
};

// Every prompt is left without an answer, which counts as no wrong code.
int notePrompt(int, const pam_message**, pam_response**, void* signIn) {
    static_cast<SignIn*>(signIn)->prompted = now();
    return PAM_CONV_ERR;
}

/// The stacks: "plain" asks for nothing, the others have the module's line as well.
void writeStacks(const ModuleSandbox& folder) {
    TestSandbox::write(folder.path("passwd"), "root:x:0:0:root:/root:/bin/sh\n");
    TestSandbox::write(folder.path("shadow"), "root:*:19000:0:99999:7:::\n");
    TestSandbox::write(folder.path("pam_kesh.conf"), "page = /painted\n");
    // The module starts its helper with an empty environment.
    std::string helper = "#!/bin/sh\nexport SSL_CERT_DIR='" + test::certificateFolder() + "/certs'";
    for (const char* name : {"QUORL_SUPPORT_BASE", "QUORL_RUNTIME_DIR", "QUORL_SYSTEM_ROOT",
                             "QUORL_GUARD_DIR", "QUORL_AGENT_ACCOUNT"})
        helper += fmt::format(" {}='{}'", name, getenv(name));
    TestSandbox::write(folder.path("helper"),
                       helper + "\nexec " QUORL_BINARY_DIR "/bin/kesh-verify\n");
    const std::string permit = "auth required pam_permit.so";
    folder.stack("plain", permit);
    for (const char* service : {"login", "sshd", "lightdm"})
        folder.stack(service, "auth required MODULE\n" + permit);
}

// With a prompt it is denied, without one it must be granted.
SignIn signIn(const ModuleSandbox& folder, const char* service, const char* name) {
    SignIn signIn;
    const pam_conv conversation{notePrompt, &signIn};
    const std::string stacks = folder.path("pam.d");
    pam_handle_t* pamh = nullptr;
    const double start = now();
    expect(pam_start_confdir(service, name, &conversation, stacks.c_str(), &pamh) == PAM_SUCCESS,
           "PAM cannot be started");
    signIn.begun = now();
    const int status = pam_authenticate(pamh, 0);
    signIn.ended = now();
    pam_end(pamh, status);
    signIn.whole = now() - start;
    signIn.took = signIn.ended - signIn.begun;
    expect((status == PAM_SUCCESS) == (signIn.prompted == 0), "a sign-in ends otherwise");
    return signIn;
}

// What the module's line adds; the floor is the stack without it.
void benchExempt(const ModuleSandbox& folder) {
    for (const auto& [figure, part] : {std::pair("agent.pam.exempt", &SignIn::took),
                                       std::pair("agent.pam.exempt.whole", &SignIn::whole)}) {
        const auto with = [&, part = part] { return signIn(folder, "login", "root").*part; };
        const auto without = [&, part = part] { return signIn(folder, "plain", "root").*part; };
        const Samples samples = compare({1000}, with, without);
        const double floor = percentile(samples.floor);
        print(figure, percentile(samples.ours) - floor, us);
        print(std::string(figure) + ".floor", floor, us);
    }
}

// To the page on the screen and its answer back: the page answers as soon as it is seen.
void benchWindow(const AgentStage& stage, const ModuleSandbox& folder) {
    const std::string request = stage.sandbox.root() / "page-request";
    TestSandbox::write(request,
                       R"({"MFA_REQUEST_URL": "/painted", "POST_DATA": "USER_NAME=nobody"})");
    const auto ours = [&] {
        settle();
        return signIn(folder, "lightdm", user).took;
    };
    const auto floor = [&] {
        settle();
        const double start = now();
        Subprocess client({.command = {QUORL_BINARY_DIR "/bin/kesh-request", "--json",
                                       "--runtime-dir", stage.sandbox.root() / "run"},
                           .input = request});
        // Without the loop that looks for the end now and then.
        siginfo_t end{};
        waitid(P_PID, static_cast<id_t>(client.pid()), &end, WEXITED | WNOWAIT);
        const auto reply =
            ServerCommunicator(systemClock())
                .sendRequestWithAuthHeader("/RestAPI/logonagent/mfa/getOfflineEnrollment", "POST",
                                           nullptr, "");
        const double took = now() - start;
        expect(client.wait() == 0, "no page is shown");
        expect(reply && !member(*reply, "ERROR_MSG"), "the server refuses a signed call");
        return took;
    };
    print("agent.pam.window", compare(pages, ours, floor), ms);
}

void benchText(const AgentStage& stage, const ModuleSandbox& folder) {
    const std::string path = stage.sandbox.root() / "asked";
    const FileDescriptor pipe = makePipe(path);
    const auto ours = [&] {
        const SignIn denied = signIn(folder, "sshd", user);
        expect(denied.prompted > 0, "no code was asked for");
        return denied.prompted - denied.begun;
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
    print("agent.pam.text.first", compare({40}, ours, floor), ms);
}

// The server's port is listened on and never answers; the floor is the agent alone, after the time
// that the server is given.
void benchSilent(AgentStage& stage, const ModuleSandbox& folder) {
    const Handle<BIO, BIO_free_all> silent(BIO_new_accept(("127.0.0.1:" + stage.port()).c_str()));
    BIO_set_bind_mode(silent.get(), BIO_BIND_REUSEADDR);
    expect(BIO_do_accept(silent.get()) == 1, "the port cannot be listened on");
    Samples ready;
    double begun = 0;
    const auto pass = [&](std::vector<double>& readyAfter, const std::function<double()>& run) {
        settle();
        const OfflinePage page = passOffline(stage, run);
        readyAfter.push_back(page.ready - begun);
        return page.verdict;
    };
    const auto module = [&] {
        const SignIn granted = signIn(folder, "lightdm", user);
        begun = granted.begun;
        return granted.ended;
    };
    const auto agentAlone = [&] {
        begun = now() - 3 * s.size;
        return askOffline(user);
    };
    const Samples verdict = compare(
        pages, [&] { return pass(ready.ours, module); },
        [&] { return pass(ready.floor, agentAlone); });
    print("agent.pam.silent", ready, s);
    print("agent.pam.verdict", verdict, ms);
}

}  // namespace

void benchPam() {
    AgentStage stage;
    const ModuleSandbox folder;
    writeStacks(folder);
    benchExempt(folder);
    test::trustTestAuthority();
    serveThePage(stage);
    stage.startDisplay();
    enroll(stage, record);
    stage.startAgent();
    benchWindow(stage, folder);
    stage.stopServer();
    benchText(stage, folder);
    benchSilent(stage, folder);
    stage.agent().stop(SIGTERM);
}

}  // namespace quorl::bench
