// The generic pipeline engine: named collections of steps run in ascending priority over
// one context object.
//
// A step names the pipeline it belongs to when it is constructed; it joins a collection
// when added with `stepIs`, which refuses a step of another pipeline, so a step can never
// run in the wrong pipeline and independent collections never share steps.
//
// Each step carries a boolean switch, `stopsByPriority`. A pass that ends at a step with
// the switch set (the step handled the context) is recorded in the context: the caller
// reads `pipelineStoppedDueToPriority()` after the pass and calls `rearm()` to start the
// next pass afresh.
#pragma once
#include "Pelin/Ptr.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Velt {

class GenericPipelineContext : public Pelin::Node {
 public:
   GenericPipelineContext() = default;

   // Written by a step's `call`: true when the step did not handle the context.
   bool stepResult() const { return stepResult_; }
   void stepResultIs(bool continuePass) { stepResult_ = continuePass; }

   // True when a pass since the last rearm() ended at a step whose switch is set.
   bool pipelineStoppedDueToPriority() const { return stoppedDueToPriority_; }
   // The priority of the step that ended the last stopped pass (0 before any).
   std::uint32_t priorityMark() const { return priorityMark_; }
   void rearm() {
      stoppedDueToPriority_ = false;
      priorityMark_ = 0;
   }
   bool shouldBeProcessedSynchronously() const { return true; }

 private:
   friend class GenericPipeline;
   bool stepResult_ = true;
   bool stoppedDueToPriority_ = false;
   std::uint32_t priorityMark_ = 0;
};

class GenericPipelineStep : public Pelin::Node {
 public:
   GenericPipelineStep(const Pelin::String& name, unsigned int priority,
                       const Pelin::String& pipelineName);

   const Pelin::String& name() const { return name_; }
   unsigned int priority() const { return priority_; }
   const Pelin::String& pipelineName() const { return pipelineName_; }
   bool stopsByPriority() const { return stopsByPriority_; }
   void stopsByPriorityIs(bool on) { stopsByPriority_ = on; }
   // The mark a step base class leaves on every step built on it, so that a pipeline that
   // knows the base can tell its steps apart without a cast; null when none was left.
   const void* family() const { return family_; }

   // Runs the step over `ctx` and records its result with ctx->stepResultIs().
   virtual void call(const Pelin::Ptr<GenericPipelineContext>& ctx) = 0;

 protected:
   void familyIs(const void* mark) { family_ = mark; }

 private:
   Pelin::String name_;
   unsigned int priority_;
   Pelin::String pipelineName_;
   bool stopsByPriority_ = false;
   const void* family_ = nullptr;
};

// The steps of one named pipeline, kept in ascending priority (equal priorities keep
// their order of insertion).
class GenericPipelineSteps : public Pelin::Node {
 public:
   explicit GenericPipelineSteps(const Pelin::String& name) : name_(name) {}

   const Pelin::String& name() const { return name_; }
   // Adds `step`, replacing a step of the same name. A null step, or one built for
   // another pipeline, raises Pelin::RangeException naming both pipelines.
   void stepIs(const Pelin::Ptr<GenericPipelineStep>& step);
   Pelin::Ptr<GenericPipelineStep> stepDel(const Pelin::String& stepName);
   void stepDelAll() { steps_.clear(); }
   Pelin::Ptr<GenericPipelineStep> step(const Pelin::String& stepName) const;

   std::size_t size() const { return steps_.size(); }
   bool empty() const { return steps_.empty(); }
   auto begin() const { return steps_.begin(); }
   auto end() const { return steps_.end(); }

 private:
   Pelin::String name_;
   std::vector<Pelin::Ptr<GenericPipelineStep>> steps_;
};

class GenericPipeline : public Pelin::Node {
 public:
   explicit GenericPipeline(const Pelin::Ptr<GenericPipelineSteps>& steps) : steps_(steps) {}

   const Pelin::Ptr<GenericPipelineSteps>& steps() const { return steps_; }
   // One pass: calls each step in priority order until one reports that it handled the
   // context. Returns true when no step handled it (an empty pipeline included).
   bool process(const Pelin::Ptr<GenericPipelineContext>& ctx) const;

 protected:
   // process() for a pipeline that runs some of its steps itself: `direct(step)` returns
   // the step's result without its call(), or nothing to have call() run as usual.
   template <typename Direct>
   bool processWith(const Pelin::Ptr<GenericPipelineContext>& ctx, Direct&& direct) const {
      GenericPipelineContext* c = ctx.get();
      for (const auto& step : *steps_) {
         c->stepResult_ = true;
         if (const std::optional<bool> result = direct(*step)) {
            c->stepResult_ = *result;
         } else {
            step->call(ctx);
         }
         if (!c->stepResult_) {
            if (step->stopsByPriority()) {
               c->stoppedDueToPriority_ = true;
               c->priorityMark_ = step->priority();
            }
            return false;
         }
      }
      return true;
   }

 private:
   Pelin::Ptr<GenericPipelineSteps> steps_;
};

Pelin::Ptr<GenericPipelineSteps> genericPipelineStepsFactory(const Pelin::String& name);
Pelin::Ptr<GenericPipeline>
genericPipelineFactory(const Pelin::Ptr<GenericPipelineSteps>& steps);

} // namespace Velt
