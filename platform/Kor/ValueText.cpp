#include "Kor/ValueText.h"

#include <charconv>

namespace Kor {

namespace {

bool needsQuotes(const std::string& v) {
   if (v.empty()) return false;
   for (char c : v) {
      if (c == ',' || c == '{' || c == '}' || c == '=' || c == '"' || c == '\\' ||
          c == ' ' || c == '\n' || c == '\t') {
         return true;
      }
   }
   return false;
}

std::string_view trim(std::string_view s) {
   while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
   while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
   return s;
}

} // namespace

bool ValueText<bool>::parse(std::string_view s) {
   s = trim(s);
   if (s == "true") return true;
   if (s == "false") return false;
   throw Pelin::DeserializationException("bool", std::string(s));
}

std::int64_t parseSigned(std::string_view s, std::int64_t min, std::int64_t max,
                         const char* typeName) {
   std::string_view t = trim(s);
   bool neg = !t.empty() && t.front() == '-';
   std::uint64_t mag = parseUnsigned(neg ? t.substr(1) : t, UINT64_MAX, typeName);
   if (neg) {
      if (mag > static_cast<std::uint64_t>(-(min + 1)) + 1) {
         throw Pelin::DeserializationException(typeName, std::string(s));
      }
      return static_cast<std::int64_t>(0 - mag);
   }
   if (mag > static_cast<std::uint64_t>(max)) {
      throw Pelin::DeserializationException(typeName, std::string(s));
   }
   return static_cast<std::int64_t>(mag);
}

std::uint64_t parseUnsigned(std::string_view s, std::uint64_t max, const char* typeName) {
   std::string_view t = trim(s);
   int base = 10;
   if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
      t.remove_prefix(2);
      base = 16;
   }
   std::uint64_t v = 0;
   auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v, base);
   if (t.empty() || ec != std::errc() || end != t.data() + t.size() || v > max) {
      throw Pelin::DeserializationException(typeName, std::string(s));
   }
   return v;
}

std::string ValueText<std::string>::print(const std::string& v) {
   if (!needsQuotes(v)) return v;
   std::string out = "\"";
   for (char c : v) {
      if (c == '"' || c == '\\') out += '\\';
      out += c;
   }
   return out + "\"";
}

std::string ValueText<std::string>::parse(std::string_view s) {
   std::string_view t = trim(s);
   if (t.empty() || t.front() != '"') return std::string(t);
   if (t.size() < 2 || t.back() != '"') {
      throw Pelin::DeserializationException("string", std::string(s));
   }
   std::string out;
   for (std::size_t i = 1; i + 1 < t.size(); ++i) {
      if (t[i] == '\\' && i + 2 < t.size()) ++i;
      out += t[i];
   }
   return out;
}

std::string printComposite(const Fields& fields) {
   std::string out = "{";
   for (std::size_t i = 0; i < fields.size(); ++i) {
      if (i) out += ", ";
      out += fields[i].first + "=" + fields[i].second;
   }
   return out + "}";
}

Fields parseComposite(std::string_view text, const char* typeName) {
   std::string_view t = trim(text);
   auto bad = [&] { return Pelin::DeserializationException(typeName, std::string(text)); };
   if (t.size() < 2 || t.front() != '{' || t.back() != '}') throw bad();
   t = t.substr(1, t.size() - 2);
   Fields out;
   std::size_t i = 0;
   while (i < t.size()) {
      std::size_t start = i;
      int depth = 0;
      bool quoted = false;
      for (; i < t.size(); ++i) {
         char c = t[i];
         if (quoted) {
            if (c == '\\') ++i;
            else if (c == '"') quoted = false;
         } else if (c == '"') {
            quoted = true;
         } else if (c == '{') {
            ++depth;
         } else if (c == '}') {
            if (--depth < 0) throw bad();
         } else if (c == ',' && depth == 0) {
            break;
         }
      }
      if (quoted || depth != 0) throw bad();
      std::string_view item = trim(t.substr(start, i - start));
      ++i; // past the comma
      if (item.empty()) {
         if (out.empty() && i >= t.size()) break; // "{}"
         throw bad();
      }
      std::size_t eq = item.find('=');
      if (eq == std::string_view::npos || eq == 0) throw bad();
      out.emplace_back(std::string(trim(item.substr(0, eq))),
                       std::string(trim(item.substr(eq + 1))));
   }
   return out;
}

const std::string& field(const Fields& fields, std::string_view name) {
   for (const auto& f : fields) {
      if (f.first == name) return f.second;
   }
   throw Pelin::DeserializationException(std::string(name), "<missing>");
}

} // namespace Kor
