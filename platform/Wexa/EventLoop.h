// Wexa::EventLoop: the agent's single-threaded event loop. The state database delivers
// completions through it, never from inside the call that asked, so callers see the same
// order of events as on a switch. Tests and tools drive it with runUntilIdle().
#pragma once
#include "Pelin/Node.h"
#include "Pelin/Ptr.h"

#include <cstddef>
#include <deque>
#include <functional>

namespace Wexa {

class EventLoop : public Pelin::Node {
 public:
   using Task = std::function<void()>;

   // Runs `task` on a later turn of the loop.
   void post(Task task) { tasks_.push_back(std::move(task)); }
   std::size_t pending() const noexcept { return tasks_.size(); }
   // Runs tasks, including those they post, until none is left; returns how many ran.
   std::size_t runUntilIdle();

 private:
   std::deque<Task> tasks_;
};

// The process's loop, made on first use.
Pelin::Ptr<EventLoop> eventLoop();

} // namespace Wexa
