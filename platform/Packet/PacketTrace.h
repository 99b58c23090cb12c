// VELT_PKT_TRACE: the one way to write a per-packet trace line. The ring gets
// "{} Pkt{}: <text>" (prefix, id, args) when the context has a trace prefix and
// "Pkt{}: <text>" (id, args) otherwise, each form its own message identity; the text
// handle gets "Pkt{}: <text>" at `level`, or `level + 3` with a prefix, formatted only
// when that level is on. Arguments are evaluated once, and only when something is on.
#pragma once
#include "Packet/PacketContext.h"
#include "Ringlog/Ringlog.h"
#include "Ringlog/ValueCodecs.h"
#include "Trace/Trace.h"

namespace Trace::detail {

constexpr int kPrefixLevelRaise = 3;

template <typename TagPrefix, typename TagPlain, typename... A>
void packet(TagPrefix tagPrefix, TagPlain tagPlain, const Handle& h, int level,
            const PacketContextBase& ctx, const char* ringPrefixed, const char* ringPlain,
            fmt::format_string<std::uint64_t, A...> text, A&&... args) {
   const bool prefixed = !ctx.tracePrefix().empty();
   if (Ringlog::isOpen()) {
      if (prefixed)
         Ringlog::detail::log(tagPrefix, h.shortName(), level + kPrefixLevelRaise, ringPrefixed,
                              ctx.tracePrefix(), ctx.id(), args...);
      else
         Ringlog::detail::log(tagPlain, h.shortName(), level, ringPlain, ctx.id(), args...);
   }
   const int at = prefixed ? level + kPrefixLevelRaise : level;
   if (h.enabled(at)) h.write(at, text, ctx.id(), std::forward<A>(args)...);
}

} // namespace Trace::detail

// VELT_PKT_TRACE(handle, 3, ctx, "Lookup fecType resolver for {}", type), with ctx a
// const PacketContextBase& (or anything derived from it).
// The handle is not even named while no handle has a level on and no ring file is open.
#define VELT_PKT_TRACE(handle, level, ctx, format, ...)                                  \
   do {                                                                                  \
      if (::Trace::anyLevelOn() || ::Ringlog::isOpen()) [[unlikely]] {                   \
         const ::Trace::Handle& veltH_ = (handle);                                       \
         if (::Ringlog::isOpen() || veltH_.anyEnabled())                                 \
            ::Trace::detail::packet([] {}, [] {}, veltH_, (level), (ctx),                \
                                    "{} Pkt{}: " format, "Pkt{}: " format,               \
                                    "Pkt{}: " format __VA_OPT__(, ) __VA_ARGS__);        \
      }                                                                                  \
   } while (0)
