#include "Wexa/EventLoop.h"

namespace Wexa {

std::size_t EventLoop::runUntilIdle() {
   std::size_t ran = 0;
   while (!tasks_.empty()) {
      Task task = std::move(tasks_.front());
      tasks_.pop_front();
      task();
      ++ran;
   }
   return ran;
}

Pelin::Ptr<EventLoop> eventLoop() {
   static Pelin::Ptr<EventLoop> loop = Pelin::make<EventLoop>();
   return loop;
}

} // namespace Wexa
