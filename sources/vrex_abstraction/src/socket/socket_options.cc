// Socket descriptor options.
#include "abstraction/socket_options.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>

#include "errors/errors.h"

namespace vrex {
namespace abstraction {

int setFdNonBlock(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
    return VREX_ERROR(::vrex::errors::SystemError(errno));
  }
  return 0;
}

int setFdReuseAddress(int fd) {
  const int on = 1;
  if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
    return VREX_ERROR(::vrex::errors::SystemError(errno));
  }
  return 0;
}

}  // namespace abstraction
}  // namespace vrex
