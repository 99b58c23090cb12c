// The libFuzzer entry of the target named by VELT_FUZZ_TARGET.
#include "FuzzTargets.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   Fuzz::VELT_FUZZ_TARGET(Fuzz::Input(data, size));
   return 0;
}
