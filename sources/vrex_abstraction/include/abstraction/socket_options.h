// Options of a socket descriptor. Each returns 0 or the errno code (module 0) of its failure.
#pragma once

namespace vrex {
namespace abstraction {

// Sets O_NONBLOCK, keeping the other status flags.
int setFdNonBlock(int fd);
// Sets SO_REUSEADDR, so that a listener can bind again while old connections linger.
int setFdReuseAddress(int fd);

}  // namespace abstraction
}  // namespace vrex
