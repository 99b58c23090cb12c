// Checks shared by the value type tests: text round trips and rejections.
#pragma once
#include "Kor/ValueText.h"
#include "Pelin/Exception.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <string>

template <typename T>
void expectRoundTrip(const std::string& text) {
   SCOPED_TRACE(text);
   T v = Kor::fromText<T>(text);
   EXPECT_EQ(Kor::toText(v), text);
   EXPECT_EQ(fmt::format("{}", v), text);
   EXPECT_TRUE(Kor::fromText<T>(Kor::toText(v)) == v);
}

template <typename T>
void expectRejected(const std::string& text, const std::string& typeName) {
   SCOPED_TRACE(text);
   try {
      Kor::fromText<T>(text);
      ADD_FAILURE() << "parsed";
   } catch (const Pelin::DeserializationException& e) {
      EXPECT_EQ(std::string(e.what()), "cannot parse " + typeName + " from '" + text + "'");
   }
}

template <typename Fn>
void expectRangeError(Fn fn, const std::string& message) {
   try {
      fn();
      ADD_FAILURE() << "no range error";
   } catch (const Pelin::RangeException& e) {
      EXPECT_EQ(std::string(e.what()), message);
   }
}
