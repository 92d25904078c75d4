#include "fleet.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "errors.h"
#include "tav/error.h"
#include "tav_fleet.h"
#include "tav_version.h"

namespace tavcfg {

namespace {

#define TAVCFG_QUOTE_(number) #number
#define TAVCFG_QUOTE(number)  TAVCFG_QUOTE_(number)
const char *const kLibrary = "libtav_fleet.so." TAVCFG_QUOTE(TAV_VERSION_MAJOR);

volatile sig_atomic_t g_isInterrupted = 0;

void Interrupt(int /*signal*/) {
    g_isInterrupted = 1;
}

/** Lets a signal end the call, not the program. */
void HandleSignals() {
    struct sigaction action = {};
    action.sa_handler = Interrupt;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

/** The library's place is beside that of sessions. */
std::string LibraryPath() {
    Dl_info sessions{};
    dladdr(dlsym(RTLD_DEFAULT, "TAV_SessionErrorText"), &sessions);
    return std::filesystem::path(sessions.dli_fname).replace_filename(kLibrary);
}

/** The library, loaded by those alone who need it: the client library that it stands on is not everybody's. */
class Library {
  public:
    Library() : handle_(dlopen(LibraryPath().c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle_ == nullptr) {
            throw Failure(fmt::format("this needs {}", dlerror()));
        }
    }

    template <typename Function>
    Function *Find(const char *name) const {
        void *const found = dlsym(handle_, name);
        if (found == nullptr) {
            throw Failure(fmt::format("{} is of another version: {}", kLibrary, dlerror()));
        }
        return reinterpret_cast<Function *>(found);
    }

  private:
    void *const handle_;  // never closed: its threads go on
};

std::string Describe(const TAV_FleetEvent &event, const FleetWords &words) {
    switch (event.kind) {
        case TAV_FLEET_PUBLISHED:
            return fmt::format("{}: generation {} of bucket {}, records {}, put or deleted {}", words.file,
                               event.generation, words.bucket, event.records, event.edits);
        case TAV_FLEET_APPLIED:
            return fmt::format("{} is generation {} of bucket {} now, records {}", words.file, event.generation,
                               words.bucket, event.records);
        default:
            return fmt::format("nothing to write: {} and generation {} of bucket {} are the same", words.file,
                               event.generation, words.bucket);
    }
}

/** Prints what happens: what hinders on standard error, so that the call can go on unseen. */
void Report(const TAV_FleetEvent *event, void *context) {
    if (event->kind == TAV_FLEET_NOTICE) {
        fmt::print(stderr, "tavcfg: {}\n", event->text);
        return;
    }
    fmt::print("{}\n", Describe(*event, *static_cast<const FleetWords *>(context)));
    if (fflush(stdout) != 0) {
        g_isInterrupted = 1;  // nobody reads any more; main says so
    }
}

int IsOver(void * /*context*/) {
    return g_isInterrupted;
}

/** Calls one of the library's two functions. */
int Call(const char *name, uint32_t flags, FleetWords words) {
    const Library library;
    const auto call = library.Find<decltype(TAV_FleetPublish)>(name);
    const auto text = library.Find<decltype(TAV_FleetErrorText)>("TAV_FleetErrorText");
    HandleSignals();
    const TAV_FleetOptions options{words.url.c_str(),
                                   words.bucket.c_str(),
                                   words.refer.empty() ? nullptr : words.refer.c_str(),
                                   words.ignoreRefer ? 1u : 0u,
                                   static_cast<uint32_t>(words.wait * 1000),
                                   flags,
                                   IsOver,
                                   Report,
                                   &words};
    if (const uint32_t code = call(words.file.c_str(), &options); code != TAV_OK) {
        throw tav::Error(code, "", text());
    }
    return 0;
}

int Publish(const FleetWords &words) {
    return Call("TAV_FleetPublish", words.watch ? TAV_FLEET_WATCH : 0, words);
}

int Follow(const FleetWords &words) {
    uint32_t flags = words.once ? TAV_FLEET_ONCE : 0;
    if (words.onConflict == "overwrite") {
        flags |= TAV_FLEET_OVERWRITE;
    }
    return Call("TAV_FleetFollow", flags, words);
}

}  // namespace

CLI::App *FleetCommands::Add(const char *name, const char *help, Run run) {
    CLI::App *command = app_->add_subcommand(name, help);
    command->callback([this, run] { invocation_->run = [words = words_, run] { return run(words); }; });
    command->add_option("FILE", words_.file, "the configuration file")->required();
    command
        ->add_option(
            "--url", words_.url,
            "the servers: nats://HOST:PORT or tls://HOST:PORT, several separated by commas; TAV_BUS_CREDENTIALS "
            "and TAV_BUS_CA say as whom to come and whom to trust")
        ->required();
    command->add_option("--bucket", words_.bucket, "the bucket, which holds one file")->option_text("NAME")->required();
    command->add_option("--wait", words_.wait, "how long to wait for the file's lock, and for a program that writes it")
        ->option_text("SECONDS")
        ->check(CLI::Range(0.0, 86400.0));
    command->add_flag("--log", invocation_->logs, "switch the debug log on");
    return command;
}

void FleetCommands::AddTo(CLI::App *app, Invocation *invocation) {
    app_ = app;
    invocation_ = invocation;
    CLI::App *publish = Add("publish", "make a bucket hold what a file does, for others to follow", Publish);
    publish->add_flag("--watch", words_.watch, "go on, and publish each change of FILE");
    publish->add_option("--refer", words_.refer, "the file whose checksum FILE carries")->option_text("FILE");
    publish->add_flag("--ignore-refer", words_.ignoreRefer, "read FILE whatever refer file it carries the checksum of");
    CLI::App *follow = Add("follow", "make a file hold what a bucket does, change by change", Follow);
    follow->add_flag("--once", words_.once, "end with what is there; --wait is for that, too");
    follow
        ->add_option("--on-conflict", words_.onConflict,
                     "what to do with a FILE that others have changed: refuse, or overwrite")
        ->check(CLI::IsMember({"refuse", "overwrite"}))
        ->option_text("WHAT");
}

}  // namespace tavcfg
