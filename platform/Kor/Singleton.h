// Process-wide objects found by name: Kor::singleton<T>("Velt::X") returns the one object
// registered under that name, making it with Pelin::make<T>(name) the first time;
// Kor::singleton<T>() does the same under the name the type declares.
#pragma once
#include "Pelin/Assert.h"
#include "Pelin/Ptr.h"

#include <string>
#include <string_view>

namespace Kor {

// The object registered under `name`, or null.
Pelin::Ptr<Pelin::Node> singletonFind(std::string_view name);
void singletonIs(std::string_view name, const Pelin::Ptr<Pelin::Node>& node);
// Forgets the object registered under `name` (tests start afresh with it); returns it.
Pelin::Ptr<Pelin::Node> singletonDel(std::string_view name);

template <typename T>
Pelin::Ptr<T> singleton(std::string_view name) {
   if (Pelin::Ptr<Pelin::Node> found = singletonFind(name)) {
      Pelin::Ptr<T> typed = Pelin::ptr_cast<T>(found);
      VELT_ASSERT(typed);
      return typed;
   }
   Pelin::Ptr<T> made = Pelin::make<T>(std::string(name));
   singletonIs(name, made);
   return made;
}

// The singleton of a type that names its own registration in T::singletonName.
template <typename T>
Pelin::Ptr<T> singleton() {
   return singleton<T>(T::singletonName);
}

} // namespace Kor
