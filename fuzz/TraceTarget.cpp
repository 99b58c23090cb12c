// A TRACE setting: parsed, then the first bytes' worth of handle names matched against it.
#include "FuzzInput.h"

#include "Trace/Trace.h"

namespace Fuzz {

void trace(Input in) {
   Bytes b(in);
   const std::string name = b.text(b.byte() % 64);
   const std::string setting(b.rest().begin(), b.rest().end());
   const Trace::Config config = Trace::parse(setting);
   const std::uint32_t levels = Trace::levelsFor(config, name);
   if (levels >> (Trace::kMaxLevel + 1)) finding("levels beyond the last", setting);
   for (const Trace::Rule& r : config.rules) Trace::matches(r.pattern, name);
}

} // namespace Fuzz
