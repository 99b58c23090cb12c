// Generic attribute access: a Kor::TypeInfo lists a type's attributes in declared order so
// that tools reach any object by attribute name (get as value text, set from text, walk
// collections, run actions). A type builds its table once with Kor::TypeBuilder and
// returns it from typeData().
#pragma once
#include "Kor/HashMap.h"
#include "Kor/Publisher.h"
#include "Kor/ValueText.h"
#include "Pelin/Exception.h"
#include "Pelin/Ptr.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Kor {

enum class AttrKind : std::uint8_t { value, node, collection, action };

// One element of a collection: its key in value text and either its value text or node.
struct CollectionEntry {
   std::string key;
   std::string value;
   Pelin::Ptr<const Pelin::Node> node;
};
using EntryFn = std::function<void(const CollectionEntry&)>;

struct AttrInfo {
   std::string name;
   AttrId id;
   AttrKind kind;
   std::function<std::string(const Pelin::Node&)> get;                   // value
   std::function<void(Pelin::Node&, std::string_view)> set;              // value, optional
   std::function<Pelin::Ptr<const Pelin::Node>(const Pelin::Node&)> node; // node
   std::function<void(const Pelin::Node&, const EntryFn&)> forEach;      // collection
   std::function<void(Pelin::Node&)> invoke;                             // action
};

struct TypeInfo {
   std::string name;
   std::vector<AttrInfo> attrs; // declared order; attrs[i].id == i

   const AttrInfo* attr(std::string_view n) const noexcept;
   const AttrInfo* attr(std::size_t index) const noexcept {
      return index < attrs.size() ? &attrs[index] : nullptr;
   }
};

namespace detail {
template <typename T>
struct IsPtr : std::false_type {};
template <typename T>
struct IsPtr<Pelin::Ptr<T>> : std::true_type {};

template <typename C>
concept Keyed = requires(const typename C::value_type& v) { C::keyOf(v); };

template <typename V>
void fillValue(CollectionEntry& e, const V& v) {
   if constexpr (IsPtr<V>::value) e.node = v;
   else e.value = toText(v);
}

// Keyed maps name their entries by key, queues by position.
template <typename C>
void walk(const C& c, const EntryFn& fn) {
   std::size_t index = 0;
   for (const auto& v : c) {
      CollectionEntry e;
      if constexpr (Keyed<C>) {
         e.key = toText(C::keyOf(v));
         fillValue(e, v);
      } else if constexpr (requires { v.first; v.second; }) {
         e.key = toText(v.first);
         fillValue(e, v.second);
      } else {
         e.key = std::to_string(index++);
         fillValue(e, v);
      }
      fn(e);
   }
}
} // namespace detail

// Declares T's attributes from its member functions, in declared order.
template <typename T>
class TypeBuilder {
 public:
   explicit TypeBuilder(std::string typeName) { info_.name = std::move(typeName); }
   // Starts from a base type's table, so derived attributes follow the base's.
   TypeBuilder& base(const TypeInfo& b) {
      info_.attrs = b.attrs;
      return *this;
   }

   template <typename R>
   TypeBuilder& value(std::string name, R (T::*getter)() const) {
      AttrInfo& a = add(std::move(name), AttrKind::value);
      a.get = [getter](const Pelin::Node& n) { return toText((self(n).*getter)()); };
      return *this;
   }
   template <typename R, typename A>
   TypeBuilder& value(std::string name, R (T::*getter)() const, void (T::*setter)(A)) {
      value(std::move(name), getter);
      info_.attrs.back().set = [setter](Pelin::Node& n, std::string_view text) {
         (static_cast<T&>(n).*setter)(fromText<std::decay_t<A>>(text));
      };
      return *this;
   }
   template <typename R>
   TypeBuilder& node(std::string name, R (T::*getter)() const) {
      add(std::move(name), AttrKind::node).node = [getter](const Pelin::Node& n) {
         return Pelin::Ptr<const Pelin::Node>((self(n).*getter)());
      };
      return *this;
   }
   template <typename C>
   TypeBuilder& collection(std::string name, const C& (T::*getter)() const) {
      add(std::move(name), AttrKind::collection).forEach =
          [getter](const Pelin::Node& n, const EntryFn& fn) { detail::walk((self(n).*getter)(), fn); };
      return *this;
   }
   template <typename R>
   TypeBuilder& action(std::string name, R (T::*fn)()) {
      add(std::move(name), AttrKind::action).invoke = [fn](Pelin::Node& n) {
         (static_cast<T&>(n).*fn)();
      };
      return *this;
   }

   // An action given as a callable, for operations that need fixed arguments.
   template <typename F>
      requires std::is_invocable_v<F, T&>
   TypeBuilder& action(std::string name, F fn) {
      add(std::move(name), AttrKind::action).invoke = [fn](Pelin::Node& n) {
         fn(static_cast<T&>(n));
      };
      return *this;
   }

   TypeInfo build() { return std::move(info_); }

 private:
   static const T& self(const Pelin::Node& n) { return static_cast<const T&>(n); }
   AttrInfo& add(std::string name, AttrKind kind) {
      AttrInfo& a = info_.attrs.emplace_back();
      a.name = std::move(name);
      a.id = static_cast<AttrId>(info_.attrs.size() - 1);
      a.kind = kind;
      return a;
   }
   TypeInfo info_;
};

// The attributes of `n`'s type; empty for a node without type data.
const std::vector<AttrInfo>& attributes(const Pelin::Node& n);
// Value attribute as value text; a node attribute as its type name or "null".
// An unknown attribute or one of another kind raises Pelin::Exception.
std::string get(const Pelin::Node& n, std::string_view attr);
Pelin::Ptr<const Pelin::Node> child(const Pelin::Node& n, std::string_view attr);
// Parses `text` into a settable value attribute.
void set(Pelin::Node& n, std::string_view attr, std::string_view text);
void forEach(const Pelin::Node& n, std::string_view collection, const EntryFn& fn);
void invoke(Pelin::Node& n, std::string_view action);

} // namespace Kor
