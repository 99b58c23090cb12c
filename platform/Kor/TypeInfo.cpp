#include "Kor/TypeInfo.h"

namespace Kor {

const AttrInfo* TypeInfo::attr(std::string_view n) const noexcept {
   for (const AttrInfo& a : attrs) {
      if (a.name == n) return &a;
   }
   return nullptr;
}

namespace {

std::string typeName(const Pelin::Node& n) {
   const TypeInfo* t = n.typeData();
   return t ? t->name : "unknown type";
}

// The attribute `name` of `n`'s type, which must be of kind `kind`.
const AttrInfo& lookup(const Pelin::Node& n, std::string_view name, AttrKind kind) {
   const TypeInfo* t = n.typeData();
   const AttrInfo* a = t ? t->attr(name) : nullptr;
   if (!a) throw Pelin::Exception("no attribute " + std::string(name) + " in " + typeName(n));
   if (a->kind != kind) {
      throw Pelin::Exception("attribute " + std::string(name) + " of " + typeName(n) +
                             " does not support this access");
   }
   return *a;
}

} // namespace

const std::vector<AttrInfo>& attributes(const Pelin::Node& n) {
   static const std::vector<AttrInfo> none;
   const TypeInfo* t = n.typeData();
   return t ? t->attrs : none;
}

std::string get(const Pelin::Node& n, std::string_view attr) {
   const TypeInfo* t = n.typeData();
   const AttrInfo* a = t ? t->attr(attr) : nullptr;
   if (a && a->kind == AttrKind::node) {
      Pelin::Ptr<const Pelin::Node> c = a->node(n);
      return c ? typeName(*c) : "null";
   }
   return lookup(n, attr, AttrKind::value).get(n);
}

Pelin::Ptr<const Pelin::Node> child(const Pelin::Node& n, std::string_view attr) {
   return lookup(n, attr, AttrKind::node).node(n);
}

void set(Pelin::Node& n, std::string_view attr, std::string_view text) {
   const AttrInfo& a = lookup(n, attr, AttrKind::value);
   if (!a.set) throw Pelin::Exception("attribute " + std::string(attr) + " is read-only");
   a.set(n, text);
}

void forEach(const Pelin::Node& n, std::string_view collection, const EntryFn& fn) {
   lookup(n, collection, AttrKind::collection).forEach(n, fn);
}

void invoke(Pelin::Node& n, std::string_view action) {
   lookup(n, action, AttrKind::action).invoke(n);
}

} // namespace Kor
