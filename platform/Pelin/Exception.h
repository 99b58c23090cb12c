// The framework's error types. Failures of resolution are never thrown; these report
// misuse of an interface or damaged input.
#pragma once
#include <stdexcept>
#include <string>

namespace Pelin {

class Exception : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A value outside the range its type allows; the message names the bound that was broken.
class RangeException : public Exception {
 public:
   using Exception::Exception;
};

// A null value passed where the attribute requires an object.
class NullArgumentException : public Exception {
 public:
   explicit NullArgumentException(const std::string& attribute)
       : Exception("null argument not allowed for attribute " + attribute),
         attribute_(attribute) {}
   const std::string& attribute() const { return attribute_; }

 private:
   std::string attribute_;
};

// An instantiating collection asked to re-create an existing entry with other arguments.
class ReinstantiationException : public Exception {
 public:
   explicit ReinstantiationException(const std::string& attribute)
       : Exception("re-instantiation of an existing entry with a different " + attribute +
                   " not allowed"),
         attribute_(attribute) {}
   const std::string& attribute() const { return attribute_; }

 private:
   std::string attribute_;
};

// Text that does not parse as the value it should denote.
class DeserializationException : public Exception {
 public:
   DeserializationException(const std::string& what, const std::string& text)
       : Exception("cannot parse " + what + " from '" + text + "'"), what_(what) {}
   const std::string& attribute() const { return what_; }

 private:
   std::string what_;
};

// A shared table found inconsistent while reading it. A repeat is damage that was raised
// and reported before and is still there: answered as corrupt, not reported again.
class CorruptionDetectedException : public Exception {
 public:
   explicit CorruptionDetectedException(const std::string& what, bool repeat = false)
       : Exception(what), repeat_(repeat) {}
   bool repeat() const { return repeat_; }

 private:
   bool repeat_;
};

} // namespace Pelin
