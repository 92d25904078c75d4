#include "nats_server.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

std::string TextOf(const std::string &path) {
    const Bytes bytes = ReadFile(path);
    return {bytes.begin(), bytes.end()};
}

void Run(const std::string &command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
}

/** The first port behind a key of the file in which the server tells its ports; 0 without one. */
int PortBehind(const std::string &told, const std::string &key) {
    const std::string host = "127.0.0.1:";
    const size_t at = told.find(key), place = told.find(host, at);
    return at != std::string::npos && place != std::string::npos ? std::stoi(told.substr(place + host.size())) : 0;
}

}  // namespace

NatsServer::NatsServer(const std::string &configuration) : configuration_(configuration) {
    Start();
}

void NatsServer::Start() {
    const std::string text = "listen: \"127.0.0.1:" + std::to_string(port_) + "\"\nports_file_dir: \"" +
                             folder_.Path() + "\"\n" + configuration_;
    WriteFile(folder_.Path("conf"), Text(text));
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execl(NATS_SERVER, NATS_SERVER, "-c", folder_.Path("conf").c_str(), "-l", folder_.Path("log").c_str(), nullptr);
        _exit(127);
    }
    // Written once it listens, beside its place: renamed from a name that does not end so.
    const std::string ports = folder_.Path("nats-server_" + std::to_string(process_) + ".ports");
    for (int i = 0; i < 2000; ++i) {
        const std::string told = FileExists(ports) ? TextOf(ports) : "";
        if (told.ends_with("}")) {
            port_ = PortBehind(told, "\"nats\"");
            clusterPort_ = PortBehind(told, "\"cluster\"");
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::string log = FileExists(folder_.Path("log")) ? TextOf(folder_.Path("log")) : "";
    throw std::runtime_error("no server: " + log);
}

void NatsServer::Kill() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void MakeAuthority(const TempFolder &folder, const std::string &name) {
    const std::string base = folder.Path(name);
    const std::string request = "openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -noenc -days 1 2>/dev/null ";
    Run(request + "-x509 -subj '/CN=" + name + " authority' -keyout " + base + "-ca.key -out " + base + "-ca.pem");
    Run(request + "-x509 -subj /CN=localhost -addext subjectAltName=DNS:localhost -CA " + base + "-ca.pem -CAkey " +
        base + "-ca.key -keyout " + base + ".key -out " + base + ".pem");
}
