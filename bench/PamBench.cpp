// Sign-ins through PAM stacks of this bench's own, with the module's copy for tests, its helper,
// the agent on a screen and a server; each beside the least that such a sign-in must do.
#include "LoginHost.h"
#include "Scene.h"
#include "ServerCommunicator.h"

#include <fmt/format.h>
#include <openssl/bio.h>
#include <security/pam_appl.h>

namespace quorl::bench {
namespace {

using test::ModuleSandbox;
using test::Subprocess;

// An account that every system has and that the module does not take for a local one.
constexpr const char* user = "nobody";
constexpr const char* record = "nobody@EXAMPLE";
constexpr int pages = 10;

struct SignIn {
    double whole = 0;     ///< from pam_start to pam_end
    double begun = 0;     ///< pam_authenticate
    double prompted = 0;  ///< the first prompt, 0 when there was none
    double ended = 0;
};

// Every prompt is left without an answer, which counts as no wrong code.
int notePrompt(int, const pam_message**, pam_response**, void* signIn) {
    static_cast<SignIn*>(signIn)->prompted = now();
    return PAM_CONV_ERR;
}

/// The stacks: "plain" asks for nothing, the others have the module's line as well.
void writeStacks(const ModuleSandbox& folder) {
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
    expect((status == PAM_SUCCESS) == (signIn.prompted == 0), "a sign-in ends otherwise");
    return signIn;
}

// What the module's line adds; the floor is the stack without it.
void benchExempt(const ModuleSandbox& folder) {
    const auto through = [&](const char* service) {
        const SignIn root = signIn(folder, service, "root");
        return Measured{{"exempt", root.ended - root.begun}, {"exempt.whole", root.whole}};
    };
    for (const auto& [name, samples] : compareMeasured(
             1000, [&] { return through("login"); }, [&] { return through("plain"); })) {
        const double floor = percentile(samples.floor);
        print("agent.pam." + name, percentile(samples.ours) - floor, us);
        print("agent.pam." + name + ".floor", floor, us);
    }
}

// To the page on the screen and its answer back: the page answers as soon as it is seen.
auto compareWindow(const AgentStage& stage, const ModuleSandbox& folder) {
    const std::string request = stage.sandbox.root() / "page-request";
    TestSandbox::write(request,
                       R"({"MFA_REQUEST_URL": "/painted", "POST_DATA": "USER_NAME=nobody"})");
    const auto ours = [&] {
        settle();
        const SignIn granted = signIn(folder, "lightdm", user);
        return Measured{{"window", granted.ended - granted.begun}};
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
        return Measured{{"window", took}};
    };
    return compareMeasured(pages, ours, floor);
}

auto compareText(const AgentStage& stage, const ModuleSandbox& folder) {
    const std::string path = stage.sandbox.root() / "asked";
    const FileDescriptor pipe = makePipe(path);
    const auto ours = [&] {
        const SignIn denied = signIn(folder, "sshd", user);
        expect(denied.prompted > 0, "no code was asked for");
        return Measured{{"text.first", denied.prompted - denied.begun}};
    };
    const auto floor = [&] {
        char byte = 0;
        const double start = now();
        Subprocess helper(
            {.command = {QUORL_BINARY_DIR "/bin/minimal-helper", record}, .output = path});
        expect(read(pipe.get(), &byte, 1) == 1, "the least helper does nothing");
        const double took = now() - start;
        helper.wait();
        return Measured{{"text.first", took}};
    };
    return compareMeasured(40, ours, floor);
}

// The server's port is listened on and never answers; the floor is the agent alone, after the time
// that the server is given.
auto compareSilent(AgentStage& stage, const ModuleSandbox& folder) {
    const Handle<BIO, BIO_free_all> silent(BIO_new_accept(("127.0.0.1:" + stage.port()).c_str()));
    BIO_set_bind_mode(silent.get(), BIO_BIND_REUSEADDR);
    expect(BIO_do_accept(silent.get()) == 1, "the port cannot be listened on");
    double begun = 0;
    const auto pass = [&](const std::function<double()>& run) {
        settle();
        const OfflinePage page = passOffline(stage, run);
        return Measured{{"silent", page.ready - begun}, {"verdict", page.verdict}};
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
    return compareMeasured(
        pages, [&] { return pass(module); }, [&] { return pass(agentAlone); });
}

void show(const std::map<std::string, Samples>& measured) {
    for (const auto& [name, samples] : measured)
        print("agent.pam." + name, samples, name == "silent" ? s : ms);
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
    show(compareWindow(stage, folder));
    stage.stopServer();
    show(compareText(stage, folder));
    show(compareSilent(stage, folder));
    stage.agent().stop(SIGTERM);
}

}  // namespace quorl::bench
