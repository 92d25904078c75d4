/*
 * A NATS server on this machine's loopback, of the test's own, and certificates for it.
 */
#ifndef TAV_TESTS_NATS_SERVER_H
#define TAV_TESTS_NATS_SERVER_H

#include <sys/types.h>

#include <string>

#include "bytes.h"

/** A server that runs as long as the object lives. */
class NatsServer {
  public:
    /** @param configuration  what its configuration says beside the address */
    explicit NatsServer(const std::string &configuration = {});
    ~NatsServer() { Kill(); }
    NatsServer(const NatsServer &) = delete;
    NatsServer &operator=(const NatsServer &) = delete;

    std::string Url(const std::string &scheme = "nats", const std::string &host = "127.0.0.1") const {
        return scheme + "://" + host + ":" + std::to_string(port_);
    }

    /** Where other servers of its cluster find it; its configuration must say that it has one. */
    std::string ClusterUrl() const { return "nats://127.0.0.1:" + std::to_string(clusterPort_); }

    /** Kills it, and starts it again on the same port. */
    void Kill();
    void Start();

    /** What its configuration says from the next start on. */
    void Configure(const std::string &configuration) { configuration_ = configuration; }

  private:
    TempFolder folder_;
    std::string configuration_;
    int port_ = -1;  // the server's choice at first
    int clusterPort_ = 0;
    pid_t process_ = 0;
};

/**
 * Makes an authority (NAME-ca.pem) in a folder, and a certificate of a server for the host name localhost that it has
 * signed (NAME.pem, NAME.key).
 */
void MakeAuthority(const TempFolder &folder, const std::string &name);

#endif
