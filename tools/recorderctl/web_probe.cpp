// Asks the web server itself what it serves at an address.
#include "tools/recorderctl/web_probe.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <csignal>
#include <memory>

#include "platform/standalone/store/file_handle.h"
#include "tools/recorderctl/web_certificate.h"

namespace recorderctl {

namespace {

constexpr int TRIES = 3;
constexpr timeval PATIENCE{.tv_sec = 2, .tv_usec = 0};

/// A connection that waits for nobody longer than that; none when there is nobody.
standalone::FileHandle connect_to(const WebAddress& address) {
    const SocketAddress wanted = socket_address(address, true);
    standalone::FileHandle line(socket(wanted.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    setsockopt(line.get(), SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof PATIENCE);
    setsockopt(line.get(), SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
    if (connect(line.get(), wanted.get(), wanted.length) != 0) line.close();
    return line;
}

std::string pem_of(X509* certificate) {
    const std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new(BIO_s_mem()), BIO_free_all);
    PEM_write_bio_X509(bio.get(), certificate);
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return {data, static_cast<std::size_t>(size)};
}

/// What one connection shows.
std::string shown_once(const WebAddress& address) {
    const standalone::FileHandle line = connect_to(address);
    if (!line) return "";
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> settings(
        SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    const std::unique_ptr<SSL, decltype(&SSL_free)> talk(SSL_new(settings.get()), SSL_free);
    SSL_set_fd(talk.get(), line.get());
    if (SSL_connect(talk.get()) != 1) return "";
    X509* shown = SSL_get0_peer_certificate(talk.get());
    return shown == nullptr ? "" : read_certificate(pem_of(shown)).fingerprint;
}

}  // namespace

bool answers(const WebAddress& address) {
    return static_cast<bool>(connect_to(address));
}

std::string shown_fingerprint(const WebAddress& address) {
    std::signal(SIGPIPE, SIG_IGN);  // somebody else may be there, and hang up
    // One that reads its configuration again hangs up on whoever comes just then.
    for (int tries = 0; tries < TRIES && answers(address); ++tries) {
        std::string shown = shown_once(address);
        if (!shown.empty()) return shown;
    }
    return "";
}

}  // namespace recorderctl
