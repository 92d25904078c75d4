/*
 * Connections to the servers.
 */
#include "fleet/connection.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <filesystem>
#include <fstream>
#include <utility>
#include <vector>

namespace fleet {

namespace {

// A connection on which nothing comes back is given up after three of these, in milliseconds.
constexpr int64_t kPingMs = 2000;
constexpr int kPingsWithoutAnswer = 2;

constexpr int64_t kReconnectMs = 100;

/** A server as the environment names it. */
struct Server {
    std::string url;
    bool isSecure;
};

/** What stands behind "//" and, if there is one, "user:password@". */
std::string PlaceOf(const std::string &url) {
    const size_t begin = url.find("://") + 3;
    const size_t user = url.find('@', begin);
    return url.substr(user != std::string::npos ? user + 1 : begin);
}

Server ParseServer(std::string url) {
    url.erase(0, url.find_first_not_of(' '));
    url.erase(url.find_last_not_of(' ') + 1);
    const bool isSecure = url.starts_with("tls://");
    if ((!isSecure && !url.starts_with("nats://")) || PlaceOf(url).empty()) {
        throw Refusal(EINVAL, "a server must be given as nats://host:port or tls://host:port");
    }
    return {std::move(url), isSecure};
}

std::vector<Server> ServersOf(const Access &access) {
    std::vector<Server> servers;
    size_t comma = 0;
    for (size_t begin = 0; comma != std::string::npos; begin = comma + 1) {
        comma = access.urls.find(',', begin);
        servers.push_back(ParseServer(access.urls.substr(begin, comma - begin)));
    }
    return servers;
}

[[noreturn]] void Refuse(natsStatus status, const Access &access) {
    natsStatus last = NATS_OK;
    const char *const detail = nats_GetLastError(&last);
    // Its detail begins with a place in the library's source, in brackets.
    const char *const sentence = detail != nullptr && last == status ? strstr(detail, "): ") : nullptr;
    const char *const words = sentence != nullptr ? sentence + 3 : natsStatus_GetText(status);
    throw Refusal(CodeOf(status), ShownServers(access) + ": " + words);
}

void Check(natsStatus status, const Access &access) {
    if (status != NATS_OK) {
        Refuse(status, access);
    }
}

/** Opens a file with a password, which nobody else may read. Throws Refusal. */
std::ifstream OpenSecret(const std::string &path) {
    struct stat status = {};
    std::ifstream file(path);
    if (!file.is_open() || stat(path.c_str(), &status) != 0) {
        throw Refusal(static_cast<uint32_t>(errno), path + ": " + strerror(errno));
    }
    const bool isOurs = status.st_uid == geteuid() || status.st_uid == 0;
    if (!S_ISREG(status.st_mode) || !isOurs || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw Refusal(EACCES, path + ": credentials must be a file of this user that nobody else may read");
    }
    return file;
}

void SetCredentials(natsOptions *options, const Access &access) {
    std::ifstream file = OpenSecret(access.credentials);
    std::string user, password;
    if (!std::getline(file, user) || !std::getline(file, password) || user.empty()) {
        throw Refusal(EINVAL, access.credentials + ": credentials are two lines, the user's name and the password");
    }
    Check(natsOptions_SetUserInfo(options, user.c_str(), password.c_str()), access);
}

void SetTls(natsOptions *options, const Access &access) {
    Check(natsOptions_SetSecure(options, true), access);
    if (!access.authorities.empty() &&
        natsOptions_LoadCATrustedCertificates(options, access.authorities.c_str()) != NATS_OK) {
        throw Refusal(EACCES, access.authorities + ": no certificates could be read");
    }
}

void SetServers(natsOptions *options, const std::vector<Server> &servers, const Access &access) {
    std::vector<const char *> urls;
    for (const Server &server : servers) {
        urls.push_back(server.url.c_str());
    }
    Check(natsOptions_SetServers(options, urls.data(), static_cast<int>(urls.size())), access);
}

/** Returns whether a descriptor is a socket of TCP whose own end has this address. */
bool IsSocketAt(int fd, const std::string &ip, int port) {
    sockaddr_storage address = {};
    socklen_t size = sizeof(address);
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        return false;
    }
    char text[NI_MAXHOST], service[NI_MAXSERV];
    return (address.ss_family == AF_INET || address.ss_family == AF_INET6) &&
           getnameinfo(reinterpret_cast<sockaddr *>(&address), size, text, sizeof(text), service, sizeof(service),
                       NI_NUMERICHOST | NI_NUMERICSERV) == 0 &&
           text == ip && service == std::to_string(port);
}

}  // namespace

std::string TrustedSetting(const char *variable) {
    const char *const value = secure_getenv(variable);
    return value != nullptr ? value : "";
}

Access AccessTo(std::string urls) {
    return {std::move(urls), TrustedSetting("TAV_BUS_CREDENTIALS"), TrustedSetting("TAV_BUS_CA")};
}

std::string ShownServers(const Access &access) {
    std::string shown;
    for (const Server &server : ServersOf(access)) {
        shown += (shown.empty() ? "" : ",") + PlaceOf(server.url);
    }
    return shown;
}

uint32_t CodeOf(natsStatus status) {
    switch (status) {
        case NATS_OK:
            return 0;
        case NATS_NO_RESPONDERS:
            return ENOENT;
        case NATS_TIMEOUT:
            return ETIMEDOUT;
        case NATS_CONNECTION_DISCONNECTED:
        case NATS_STALE_CONNECTION:
        case NATS_IO_ERROR:
            return ECONNRESET;
        case NATS_CONNECTION_CLOSED:
        case NATS_INSUFFICIENT_BUFFER:  // which is what a connection says that is away, as nothing is kept for later
            return ENOTCONN;
        case NATS_NO_SERVER:
            return ECONNREFUSED;
        case NATS_CONNECTION_AUTH_FAILED:
        case NATS_NOT_PERMITTED:
        case NATS_SSL_ERROR:
        case NATS_SECURE_CONNECTION_WANTED:
        case NATS_SECURE_CONNECTION_REQUIRED:
            return EACCES;
        case NATS_MAX_PAYLOAD:
            return EMSGSIZE;
        case NATS_NO_MEMORY:
            return ENOMEM;
        case NATS_INVALID_ARG:
        case NATS_ADDRESS_MISSING:
            return EINVAL;
        default:
            return EIO;
    }
}

Options MakeOptions(const Access &access) {
    const std::vector<Server> servers = ServersOf(access);
    natsOptions *made = nullptr;
    Check(natsOptions_Create(&made), access);
    Options options(made);
    SetServers(made, servers, access);
    bool isSecure = !access.authorities.empty();
    for (const Server &server : servers) {
        isSecure = isSecure || server.isSecure;
    }
    if (isSecure) {
        SetTls(made, access);
    }
    if (!access.credentials.empty()) {
        SetCredentials(made, access);
    }
    natsOptions_SetName(made, program_invocation_short_name);
    natsOptions_SetTimeout(made, kConnectMs);
    natsOptions_SetPingInterval(made, kPingMs);
    natsOptions_SetMaxPingsOut(made, kPingsWithoutAnswer);
    natsOptions_SetMaxReconnect(made, -1);
    natsOptions_SetReconnectWait(made, kReconnectMs);
    natsOptions_SetReconnectBufSize(made, 0);
    natsOptions_SetFailRequestsOnDisconnect(made, true);
    return options;
}

Connection Connect(const Access &access, natsOptions *options) {
    const WithoutSignals guard;
    natsConnection *made = nullptr;
    Check(natsConnection_Connect(&made, options), access);
    KeepFromPrograms(made);
    return Connection(made);
}

void KeepFromPrograms(natsConnection *connection) {
    char *ip = nullptr;
    int port = 0;
    if (natsConnection_GetLocalIPAndPort(connection, &ip, &port) != NATS_OK) {
        return;  // lost again
    }
    const std::string ownIp = ip;
    free(ip);
    // The library does not tell the descriptor.
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd", ignored)) {
        const int fd = atoi(entry.path().filename().c_str());
        if (IsSocketAt(fd, ownIp, port)) {
            fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
}

WithoutSignals::WithoutSignals() {
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP}) {
        sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before_);
}

WithoutSignals::~WithoutSignals() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

}  // namespace fleet
