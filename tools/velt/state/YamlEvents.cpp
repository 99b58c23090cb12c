#include "velt/state/YamlEvents.h"

#include <fmt/format.h>
#include <yaml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace VeltState {

struct YamlEvents::Parser {
   yaml_parser_t parser;
};

namespace {

bool nullWord(std::string_view s) {
   return s.empty() || s == "~" || s == "null" || s == "Null" || s == "NULL";
}

Position positionOf(const yaml_mark_t& m) {
   return {static_cast<int>(m.line) + 1, static_cast<int>(m.column) + 1};
}

// Frees the event libyaml filled, whatever happens to the copy made of it.
struct EventGuard {
   yaml_event_t event;
   ~EventGuard() { yaml_event_delete(&event); }
};

std::string_view text(const yaml_char_t* s) {
   return s ? std::string_view(reinterpret_cast<const char*>(s)) : std::string_view();
}

} // namespace

YamlEvents::YamlEvents(std::string_view text, std::string fileName, Progress progress)
    : text_(text), size_(text.size()), fileName_(std::move(fileName)),
      progress_(std::move(progress)), parser_(std::make_unique<Parser>()) {
   if (!yaml_parser_initialize(&parser_->parser)) throw std::bad_alloc();
   yaml_parser_set_input(&parser_->parser, &YamlEvents::read, this);
}

YamlEvents::YamlEvents(std::FILE* file, std::size_t size, std::string fileName,
                       Progress progress)
    : YamlEvents(std::string_view(), std::move(fileName), std::move(progress)) {
   file_ = file;
   size_ = size;
}

YamlEvents::~YamlEvents() {
   yaml_parser_delete(&parser_->parser);
}

// Called by the parser for more text: 0 on a read error, which is kept to be reported.
int YamlEvents::read(void* self, unsigned char* buffer, std::size_t size, std::size_t* got) {
   auto& r = *static_cast<YamlEvents*>(self);
   std::size_t n;
   if (r.file_) {
      n = std::fread(buffer, 1, size, r.file_);
      if (n == 0 && std::ferror(r.file_)) {
         r.readErrno_ = errno ? errno : EIO;
         return 0;
      }
   } else {
      n = std::min(size, r.text_.size() - r.offset_);
      std::memcpy(buffer, r.text_.data() + r.offset_, n);
   }
   r.offset_ += n;
   *got = n;
   if (r.progress_ && r.size_ > 0) {
      std::size_t percent = std::min<std::size_t>(r.offset_ * 100 / r.size_, 100);
      if (percent != r.shownPercent_) {
         r.shownPercent_ = percent;
         r.progress_(std::min(r.offset_, r.size_), r.size_);
      }
   }
   return 1;
}

// The line and column of byte `offset`, counted from the start of the text.
Position YamlEvents::placeOf(std::size_t offset) {
   int line = 1;
   std::size_t lineStart = 0;
   auto scan = [&](std::string_view chunk, std::size_t base) {
      for (std::size_t i = 0; i < chunk.size() && base + i < offset; ++i) {
         if (chunk[i] == '\n') {
            ++line;
            lineStart = base + i + 1;
         }
      }
   };
   if (!file_) {
      scan(text_, 0);
   } else if (std::fseek(file_, 0, SEEK_SET) == 0) {
      char buf[1 << 16];
      std::size_t base = 0, n;
      while (base < offset && (n = std::fread(buf, 1, sizeof(buf), file_)) > 0) {
         scan(std::string_view(buf, n), base);
         base += n;
      }
   }
   return {line, static_cast<int>(offset - lineStart) + 1};
}

void YamlEvents::fail(Position at, const std::string& problem) const {
   throw StateError(fileName_, at.line, at.column, problem);
}

void YamlEvents::syntaxError() {
   const yaml_parser_t& p = parser_->parser;
   if (p.error == YAML_MEMORY_ERROR) throw std::bad_alloc();
   if (readErrno_ != 0) {
      fail({}, fmt::format("cannot read the file: {}", std::strerror(readErrno_)));
   }
   std::string problem = p.problem ? p.problem : "unreadable text";
   Position at = positionOf(p.problem_mark);
   if (p.error == YAML_READER_ERROR) {
      // The reader reports a byte offset: count the lines up to it.
      at = placeOf(std::min(p.problem_offset, size_));
      if (p.problem_value >= 0)
         problem += fmt::format(" (byte 0x{:02x})", p.problem_value);
   } else if (p.context) {
      Position c = positionOf(p.context_mark);
      problem += fmt::format(" {} at {}:{}", p.context, c.line, c.column);
   }
   fail(at, "YAML syntax error: " + problem);
}

const YamlEvent& YamlEvents::peek() {
   if (!ready_) fill();
   return current_;
}

YamlEvent& YamlEvents::take() {
   peek();
   ready_ = false;
   return current_;
}

void YamlEvents::fill() {
   for (;;) {
      if (replay_.empty()) {
         if (!readRaw()) continue;
      } else {
         Replay& r = replay_.back();
         if (r.next == r.end) {
            replay_.pop_back();
            continue;
         }
         const bool first = r.next == r.begin;
         const Position at = r.at;
         const Recorded& rec = recorded_[r.next++];
         if (rec.alias) {
            replay_.push_back(
                {rec.begin, rec.begin, rec.end, first ? at : rec.event.pos});
            continue;
         }
         current_ = rec.event;
         if (first) current_.pos = at;
         if (current_.kind == EventKind::scalar ||
             current_.kind == EventKind::sequenceStart ||
             current_.kind == EventKind::mappingStart) {
            if (++aliasNodes_ > maxAliasNodes) {
               // Named at the alias written in the document, whose expansion went over.
               fail(replay_.front().at,
                    fmt::format("aliases expand the document by more than {} "
                                "nodes; write the repeated parts out",
                                maxAliasNodes));
            }
         }
      }
      break;
   }
   if (current_.kind == EventKind::sequenceStart ||
       current_.kind == EventKind::mappingStart) {
      if (++depth_ > maxDepth) {
         fail(current_.pos,
              fmt::format("collections nested more than {} deep", maxDepth));
      }
   } else if (current_.kind == EventKind::sequenceEnd ||
              current_.kind == EventKind::mappingEnd) {
      --depth_;
   }
   ready_ = true;
}

// One event from the parser into current_; false when it gave none to hand out (the
// stream's start, or an alias whose replay has just begun).
bool YamlEvents::readRaw() {
   EventGuard g;
   if (!yaml_parser_parse(&parser_->parser, &g.event)) syntaxError();
   const yaml_event_t& e = g.event;
   current_.pos = positionOf(e.start_mark);
   current_.null = false;
   current_.value.clear();
   std::string_view anchor;
   switch (e.type) {
   case YAML_STREAM_START_EVENT:
   case YAML_NO_EVENT:
      return false;
   case YAML_STREAM_END_EVENT:
      current_.kind = EventKind::streamEnd;
      break;
   case YAML_DOCUMENT_START_EVENT:
      current_.kind = EventKind::documentStart;
      break;
   case YAML_DOCUMENT_END_EVENT:
      current_.kind = EventKind::documentEnd;
      // Anchors name nodes of their own document only.
      anchors_.clear();
      recorded_.clear();
      break;
   case YAML_ALIAS_EVENT:
      startAlias(text(e.data.alias.anchor), current_.pos);
      return false;
   case YAML_SCALAR_EVENT:
      current_.kind = EventKind::scalar;
      current_.value.assign(reinterpret_cast<const char*>(e.data.scalar.value),
                            e.data.scalar.length);
      current_.null = e.data.scalar.style == YAML_PLAIN_SCALAR_STYLE &&
                      !e.data.scalar.tag && nullWord(current_.value);
      anchor = text(e.data.scalar.anchor);
      break;
   case YAML_SEQUENCE_START_EVENT:
      current_.kind = EventKind::sequenceStart;
      anchor = text(e.data.sequence_start.anchor);
      break;
   case YAML_SEQUENCE_END_EVENT:
      current_.kind = EventKind::sequenceEnd;
      break;
   case YAML_MAPPING_START_EVENT:
      current_.kind = EventKind::mappingStart;
      anchor = text(e.data.mapping_start.anchor);
      break;
   case YAML_MAPPING_END_EVENT:
      current_.kind = EventKind::mappingEnd;
      break;
   }
   record(current_, anchor);
   return true;
}

// Keeps the events of anchored nodes while they are read, for aliases to replay later.
void YamlEvents::record(const YamlEvent& e, std::string_view anchor) {
   if (!anchor.empty())
      recorders_.push_back({std::string(anchor), recorded_.size(), rawDepth_});
   if (!recorders_.empty()) recorded_.push_back({e, false, 0, 0});
   if (e.kind == EventKind::sequenceStart || e.kind == EventKind::mappingStart) {
      ++rawDepth_;
   } else if (e.kind == EventKind::sequenceEnd || e.kind == EventKind::mappingEnd) {
      --rawDepth_;
   }
   while (!recorders_.empty() && recorders_.back().depth == rawDepth_) {
      Recorder& r = recorders_.back();
      anchors_[r.anchor] = {r.begin, recorded_.size()};
      recorders_.pop_back();
   }
   if (recorders_.empty() && anchors_.empty()) recorded_.clear();
}

void YamlEvents::startAlias(std::string_view anchor, Position at) {
   auto it = anchors_.find(std::string(anchor));
   if (it == anchors_.end()) {
      fail(at,
           fmt::format("alias *{} names no complete node anchored before it", anchor));
   }
   auto [begin, end] = it->second;
   // An anchored node that holds this alias keeps it as a reference, resolved now, so
   // that a later anchor of the same name does not change what it stands for.
   if (!recorders_.empty()) {
      Recorded ref;
      ref.event.pos = at;
      ref.alias = true;
      ref.begin = begin;
      ref.end = end;
      recorded_.push_back(std::move(ref));
   }
   replay_.push_back({begin, begin, end, at});
}

} // namespace VeltState
