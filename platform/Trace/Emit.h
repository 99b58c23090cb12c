// The trace macros for code that has no packet: each call writes the line to Ringlog and,
// when the level is on, to the text handle. Arguments are evaluated once, and only when
// the ring file is open or some level of the handle is on.
#pragma once
#include "Ringlog/Ringlog.h"
#include "Trace/Trace.h"

namespace Trace::detail {

template <typename Tag, typename... A>
void plain(Tag tag, const Handle& h, int level, const char* ringFormat,
           fmt::format_string<A...> text, A&&... args) {
   if (Ringlog::isOpen()) Ringlog::detail::log(tag, h.shortName(), level, ringFormat, args...);
   if (h.enabled(level)) h.write(level, text, std::forward<A>(args)...);
}

template <typename Tag, typename... A>
void withFunction(Tag tag, const Handle& h, int level, const char* function,
                  const char* ringFormat, fmt::format_string<A...> text, A&&... args) {
   if (Ringlog::isOpen())
      Ringlog::detail::log(tag, h.shortName(), level, ringFormat, function, args...);
   if (h.enabled(level)) h.write(level, text, std::forward<A>(args)...);
}

} // namespace Trace::detail

// VELT_TRACE(handle, 2, "Loaded {} plugins", n)
#define VELT_TRACE(handle, level, format, ...)                                           \
   do {                                                                                  \
      if (::Trace::anyLevelOn() || ::Ringlog::isOpen()) [[unlikely]] {                   \
         const ::Trace::Handle& veltH_ = (handle);                                       \
         if (::Ringlog::isOpen() || veltH_.anyEnabled())                                 \
            ::Trace::detail::plain([] {}, veltH_, (level), format,                       \
                                   format __VA_OPT__(, ) __VA_ARGS__);                   \
      }                                                                                  \
   } while (0)

// The ring line carries the function name first ("{} " + format); the text line does not.
// VELT_TRACE_FN(handle, 1, "maybeCreateResolverVrfRoot", "Creating vrf {}", name)
#define VELT_TRACE_FN(handle, level, function, format, ...)                              \
   do {                                                                                  \
      if (::Trace::anyLevelOn() || ::Ringlog::isOpen()) [[unlikely]] {                   \
         const ::Trace::Handle& veltH_ = (handle);                                       \
         if (::Ringlog::isOpen() || veltH_.anyEnabled())                                 \
            ::Trace::detail::withFunction([] {}, veltH_, (level), (function),            \
                                          "{} " format,                                  \
                                          format __VA_OPT__(, ) __VA_ARGS__);            \
      }                                                                                  \
   } while (0)
