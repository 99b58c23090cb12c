// The events of a YAML text, one at a time, read with libyaml: the state reader builds
// its values from them without holding the document. An alias replays the events its
// anchor recorded, within a budget, so that a small file cannot expand without bound.
#pragma once
#include "velt/state/State.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace VeltState {

enum class EventKind : std::uint8_t {
   scalar,
   sequenceStart,
   sequenceEnd,
   mappingStart,
   mappingEnd,
   documentStart,
   documentEnd,
   streamEnd,
};

struct YamlEvent {
   EventKind kind = EventKind::streamEnd;
   bool null = false; // a plain, untagged scalar YAML reads as null ("", ~, null, ...)
   Position pos;      // where the event's node starts
   std::string value; // a scalar's text
};

class YamlEvents {
 public:
   // Told how many bytes of `total` the parser has taken so far.
   using Progress = std::function<void(std::size_t done, std::size_t total)>;

   // Nodes that aliases may add to a document, in all: past it the file is refused.
   static constexpr std::size_t maxAliasNodes = 4'000'000;
   // Collections nested deeper than this are refused (the state needs a handful).
   static constexpr int maxDepth = 64;

   // `text` must outlive the reader; `fileName` is what errors name.
   YamlEvents(std::string_view text, std::string fileName, Progress progress = {});
   // Reads `file`, of `size` bytes, as the parser asks for more, so that the text is
   // never held whole; a read error raises StateError at line 0.
   YamlEvents(std::FILE* file, std::size_t size, std::string fileName,
              Progress progress = {});
   ~YamlEvents();
   YamlEvents(const YamlEvents&) = delete;
   YamlEvents& operator=(const YamlEvents&) = delete;

   // The next event, left in place.
   const YamlEvent& peek();
   // The next event, consumed: valid until the next call, its value free to take.
   YamlEvent& take();

   [[noreturn]] void fail(Position at, const std::string& problem) const;

 private:
   struct Recorded {
      YamlEvent event;
      bool alias = false;
      std::size_t begin = 0, end = 0; // an alias's range of recorded events
   };
   struct Recorder {
      std::string anchor;
      std::size_t begin;
      int depth;
   };
   // An alias being replayed; its first event is placed where the alias is written.
   struct Replay {
      std::size_t begin, next, end;
      Position at;
   };

   void fill();
   bool readRaw();
   void record(const YamlEvent& e, std::string_view anchor);
   void startAlias(std::string_view anchor, Position at);
   [[noreturn]] void syntaxError();
   static int read(void* self, unsigned char* buffer, std::size_t size, std::size_t* got);

   Position placeOf(std::size_t offset);

   std::string_view text_;
   std::FILE* file_ = nullptr;
   std::size_t size_ = 0;
   std::size_t offset_ = 0;
   int readErrno_ = 0;
   std::size_t shownPercent_ = 0;
   std::string fileName_;
   Progress progress_;
   struct Parser;
   std::unique_ptr<Parser> parser_;

   YamlEvent current_;
   bool ready_ = false;
   int depth_ = 0;    // nesting of the events handed out
   int rawDepth_ = 0; // nesting of the events the parser gave
   std::vector<Recorded> recorded_;
   std::vector<Recorder> recorders_;
   std::unordered_map<std::string, std::pair<std::size_t, std::size_t>> anchors_;
   std::vector<Replay> replay_;
   std::size_t aliasNodes_ = 0;
};

} // namespace VeltState
