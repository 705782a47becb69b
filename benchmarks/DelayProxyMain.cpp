// delay-proxy PORT MS: a link to a server of this machine with that round trip. Prints the port to
// connect to, and goes on until its input ends.
#include <cstdio>
#include <cstdlib>

#include "DelayProxy.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: delay-proxy PORT MS\n", stderr);
    return 2;
  }
  const Moravel::Bench::DelayProxy proxy(static_cast<uint16_t>(std::atoi(argv[1])),
                                         std::chrono::microseconds(500 * std::atoi(argv[2])));
  std::printf("%d\n", proxy.Port());
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
}
