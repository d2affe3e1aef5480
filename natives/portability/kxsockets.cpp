#include <arpa/inet.h>
#include <unistd.h>

#include "kxos.h"

namespace {

// Sign-extended, not zero-extended (integer conversion is modulo 2^64): a negative length
// reaches the call as a huge count, exactly as the wrapped call would see it.
size_t widenWithSign(int32_t length) { return static_cast<size_t>(length); }

}  // namespace

extern "C" {

int kx_socket(int domain, int type, int protocol) { return socket(domain, type, protocol); }
int kx_bind(int socket, const struct sockaddr* address, socklen_t length) {
  return bind(socket, address, length);
}
int kx_listen(int socket, int backlog) { return listen(socket, backlog); }
int kx_accept(int socket, struct sockaddr* address, socklen_t* length) {
  return accept(socket, address, length);
}
int kx_connect(int socket, const struct sockaddr* address, socklen_t length) {
  return connect(socket, address, length);
}
ssize_t kx_send(int socket, const void* buffer, int32_t length, int flags) {
  return send(socket, buffer, widenWithSign(length), flags);
}
ssize_t kx_recv(int socket, void* buffer, int32_t length, int flags) {
  return recv(socket, buffer, widenWithSign(length), flags);
}
int kx_setsockopt(int socket, int level, int option, const void* value, socklen_t length) {
  return setsockopt(socket, level, option, value, length);
}
int kx_getsockopt(int socket, int level, int option, void* value, socklen_t* length) {
  return getsockopt(socket, level, option, value, length);
}
int kx_getaddrinfo(const char* node, const char* service, const struct addrinfo* hints,
                   struct addrinfo** result) {
  return getaddrinfo(node, service, hints, result);
}
struct hostent* kx_gethostbyname(const char* name) {
  return gethostbyname(name);
}
uint64_t kx_inet_addr(const char* dottedAddress) {
  return static_cast<uint64_t>(inet_addr(dottedAddress));
}
int kx_closesocket(int socket) { return close(socket); }
}
