#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "agent/web/countchanges.h"
#include "agent/web/eventways.h"
#include "agent/web/webroutes.h"
#include "connection/agentrequest.h"
#include "connection/storesession.h"
#include "records/jsonfields.h"
#include "zel/commands.h"
#include "zel/serve/webtools.h"
#include "zel/terminal/messages.h"
#include "zel/terminal/narrator.h"

// The page for a person. An agent serves it itself and is asked for a link. Of a store that is
// named this program is the server, for as long as it runs: it reads alone, so that the page has
// neither notes nor new events.

namespace zel {

namespace {

constexpr const char* fileName = "zel-web.html";

// Everybody on the machine sees what programs are called with, and could be faster with the link
// than the browser. So the browser is called with a file that nobody else can read and that leads
// to it. Empty where the user has no folder for such files, as without a desktop.
std::string FileThatLeadsTo(const std::string& link) {
    constexpr mode_t ofOthers = 0077, ownerOnly = 0600;
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    struct stat info {};
    if (folder == nullptr || ::lstat(folder, &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != ::geteuid() || (info.st_mode & ofOthers) != 0)
        return "";
    const std::string file = std::string(folder) + "/" + fileName;
    const std::string text =
        "<!doctype html>\n<meta charset=\"utf-8\">\n<meta http-equiv=\"refresh\" "
        "content=\"0;url=" +
        link + "\">\n<title>zel</title>\n";
    ::unlink(file.c_str());
    const int descriptor =
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, ownerOnly);
    const bool isWritten = descriptor >= 0 && ::write(descriptor, text.data(), text.size()) ==
                                                  static_cast<ssize_t>(text.size());
    if (descriptor >= 0)
        ::close(descriptor);
    return isWritten ? file : "";
}

// Away from this terminal: what is typed there, such as Ctrl-C, is not for the browser.
void Detach(posix_spawnattr_t* attributes) {
    sigset_t usual;
    ::sigemptyset(&usual);
    ::sigaddset(&usual, SIGPIPE);
    ::posix_spawnattr_setsigdefault(attributes, &usual);
    ::posix_spawnattr_setpgroup(attributes, 0);
    ::posix_spawnattr_setflags(attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
}

// The browser's affair from there on. That there is none is no failure: the link is printed.
void OpenInBrowser(const std::string& link) {
    std::string program = "xdg-open", file = FileThatLeadsTo(link);
    if (file.empty())
        return;
    char* const arguments[] = {program.data(), file.data(), nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        ::posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_RDWR, 0);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    Detach(&attributes);
    pid_t child = 0;
    ::posix_spawnp(&child, program.c_str(), &actions, &attributes, arguments, environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
}

void Show(const WebOptions& options, const std::string& link) {
    std::fputs((link + "\n").c_str(), stdout);
    std::fflush(stdout);
    if (!options.noOpen)
        OpenInBrowser(link);
}

int ShowAgents(const WebOptions& options) {
    std::string answer, problem;
    JsonFields json;
    SourceFields fields;
    if (Failed(CallAgent("POST", "/v1/web/link", "", &answer, &problem))) {
        Say(problem);
        return exitCode::noStore;
    }
    const std::string link =
        json.Read(answer, &fields) ? std::string(fields.Take("url")) : std::string();
    if (!link.starts_with("http://127.0.0.1:")) {
        Say("the agent gives no link as an agent does");
        return exitCode::noStore;
    }
    Show(options, link);
    return exitCode::done;
}

// A store that is read alone: whoever has the link may ask.
class CopyHost final : public IWebHost {
public:
    void Note(const std::string&) override {}
    void CountRequest(std::string_view, int) override {}
    bool Has(const Peer&, Right right) const override { return right == Right::read; }
    Followers* Following() override { return nullptr; }
    std::string Settled() const override { return ""; }
    void Annotate(std::string, std::string, const std::function<void(bool)>& done) override {
        done(false);
    }
};

bool Serve(const WebOptions& options, StoreSession& store, const std::string& directory) {
    const WebTools tools = MakeWebTools(options.readParameters);
    CopyHost host;
    Questions questions(*store, QuestionLimits{}, HostReports());
    FileChanges changes(directory);
    EventWays events(questions, tools, changes);
    WebParts parts{*store, questions, events, tools, host, directory, ZEL_VERSION, false};
    WebRoutes routes(parts);
    std::atomic<std::uint64_t> connections{0};
    HttpServer server(routes, webLimits, connections);
    std::string problem;
    if (!server.ListenAt(std::uint16_t{0}, &problem)) {
        Say(problem);
        return false;
    }
    server.Start();
    const std::string link = routes.MakeLink(Peer(), server.Port());
    if (link.empty())
        Say("the system gives no random numbers");
    else
        Show(options, link);
    while (!link.empty() && !Interrupted()) {
        pollfd wait{InterruptDescriptor(), POLLIN, 0};
        ::poll(&wait, 1, -1);
    }
    questions.Stop();
    server.Stop();
    return !link.empty();
}

}  // namespace

int RunWeb(const WebOptions& options) {
    if (!AgentSocket().empty())
        return ShowAgents(options);
    std::string directory;
    StoreSession store(Terminal());
    if (!FindStore(StoreNeed::reading, &directory) || !store.Open(StoreNeed::reading))
        return exitCode::noStore;
    const bool isServed = Serve(options, store, std::filesystem::absolute(directory));
    store.Close();
    return isServed ? exitCode::done : exitCode::noStore;
}

}  // namespace zel
