#include "Kor/Singleton.h"

#include <functional>
#include <map>

namespace Kor {

namespace {
// Never destroyed: singletons may be reached while other statics are torn down.
std::map<std::string, Pelin::Ptr<Pelin::Node>, std::less<>>& registry() {
   static auto* r = new std::map<std::string, Pelin::Ptr<Pelin::Node>, std::less<>>;
   return *r;
}
} // namespace

Pelin::Ptr<Pelin::Node> singletonFind(std::string_view name) {
   auto it = registry().find(name);
   return it == registry().end() ? nullptr : it->second;
}

void singletonIs(std::string_view name, const Pelin::Ptr<Pelin::Node>& node) {
   registry().insert_or_assign(std::string(name), node);
}

Pelin::Ptr<Pelin::Node> singletonDel(std::string_view name) {
   auto it = registry().find(name);
   if (it == registry().end()) return nullptr;
   Pelin::Ptr<Pelin::Node> old = std::move(it->second);
   registry().erase(it);
   return old;
}

} // namespace Kor
