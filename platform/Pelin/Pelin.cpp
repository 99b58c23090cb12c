#include "Pelin/Assert.h"
#include "Pelin/Threading.h"

#include <cstdio>
#include <cstdlib>

namespace Pelin {

namespace detail {
std::atomic<bool> gMultiThreaded{false};
}

void multiThreadedIs(bool on) { detail::gMultiThreaded.store(on, std::memory_order_seq_cst); }

void assertFailed(const char* expr, const char* function, const char* file, int line) {
   std::fprintf(stderr, "Assertion failed: %s\n  in %s\n  at %s:%d\n", expr, function, file,
                line);
   std::fflush(stderr);
   std::abort();
}

} // namespace Pelin

#include "Pelin/Node.h"

namespace Pelin {

void Node::lastUserGone() {
   if (dispose_) {
      dispose_(this);
   } else {
      delete this;
   }
}

} // namespace Pelin
