// Programming errors: VELT_ASSERT aborts the process, printing the asserted expression
// exactly as written and the enclosing function's signature.
#pragma once

namespace Pelin {
[[noreturn]] void assertFailed(const char* expr, const char* function, const char* file,
                               int line);
}

#define VELT_ASSERT(expr)                                                                \
   ((expr) ? static_cast<void>(0)                                                        \
           : ::Pelin::assertFailed(#expr, __PRETTY_FUNCTION__, __FILE__, __LINE__))

// For call sites whose reported signature is fixed by contract rather than by the compiler.
#define VELT_ASSERT_IN(expr, signature)                                                  \
   ((expr) ? static_cast<void>(0) : ::Pelin::assertFailed(#expr, signature, __FILE__, __LINE__))
