#include "Pipeline/GenericPipeline.h"

#include "Pelin/Exception.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace Velt;

struct TraceCtx : GenericPipelineContext {
   std::vector<std::string> ran;
};

// Records its name and handles the context when told to.
struct RecordingStep : GenericPipelineStep {
   RecordingStep(const std::string& name, unsigned prio, bool handles,
                 const std::string& pipeline = "Main")
       : GenericPipelineStep(name, prio, pipeline), handles_(handles) {}
   void call(const Pelin::Ptr<GenericPipelineContext>& ctx) override {
      static_cast<TraceCtx&>(*ctx).ran.push_back(name());
      ctx->stepResultIs(!handles_);
   }
   bool handles_;
};

Pelin::Ptr<RecordingStep> step(const std::string& n, unsigned p, bool handles,
                               bool switchOn = true) {
   auto s = Pelin::make<RecordingStep>(n, p, handles);
   s->stopsByPriorityIs(switchOn);
   return s;
}

TEST(GenericPipeline, RunsInPriorityOrderWhateverTheInsertionOrder) {
   auto steps = genericPipelineStepsFactory("Main");
   steps->stepIs(step("c", 300, false));
   steps->stepIs(step("a", 100, false));
   steps->stepIs(step("b", 200, false));
   auto ctx = Pelin::make<TraceCtx>();
   EXPECT_TRUE(genericPipelineFactory(steps)->process(ctx));
   EXPECT_EQ(ctx->ran, (std::vector<std::string>{"a", "b", "c"}));
   EXPECT_FALSE(ctx->pipelineStoppedDueToPriority());
}

TEST(GenericPipeline, StopsAtTheFirstHandlingStepAndRecordsItsSwitch) {
   auto steps = genericPipelineStepsFactory("Main");
   steps->stepIs(step("a", 100, false));
   steps->stepIs(step("b", 200, true));
   steps->stepIs(step("c", 300, true));
   auto pipeline = genericPipelineFactory(steps);
   auto ctx = Pelin::make<TraceCtx>();
   EXPECT_FALSE(pipeline->process(ctx));
   EXPECT_EQ(ctx->ran, (std::vector<std::string>{"a", "b"}));
   EXPECT_TRUE(ctx->pipelineStoppedDueToPriority());
   EXPECT_EQ(ctx->priorityMark(), 200u);
   ctx->rearm();
   EXPECT_FALSE(ctx->pipelineStoppedDueToPriority());

   // A handling step without the switch ends the pass but is not a priority stop.
   steps->stepIs(step("b", 200, true, false));
   EXPECT_FALSE(pipeline->process(ctx));
   EXPECT_FALSE(ctx->pipelineStoppedDueToPriority());
}

TEST(GenericPipeline, EmptyPipelineReportsNothingHandled) {
   auto ctx = Pelin::make<TraceCtx>();
   EXPECT_TRUE(genericPipelineFactory(genericPipelineStepsFactory("Main"))->process(ctx));
}

TEST(GenericPipelineSteps, CollectionsStayIndependentAndRefuseForeignSteps) {
   auto main = genericPipelineStepsFactory("Main");
   auto other = genericPipelineStepsFactory("Main");
   main->stepIs(step("a", 1, false));
   EXPECT_EQ(other->size(), 0u);

   auto fallback = genericPipelineStepsFactory("Fallback");
   EXPECT_THROW(fallback->stepIs(step("a", 1, false)), Pelin::RangeException);
   EXPECT_THROW(fallback->stepIs(nullptr), Pelin::NullArgumentException);
   EXPECT_EQ(fallback->size(), 0u);
}

TEST(GenericPipelineSteps, SameNameReplacesAndDeleteReturnsTheStep) {
   auto steps = genericPipelineStepsFactory("Main");
   steps->stepIs(step("a", 1, false));
   auto replacement = step("a", 5, true);
   steps->stepIs(replacement);
   EXPECT_EQ(steps->size(), 1u);
   EXPECT_EQ(steps->step("a"), replacement);
   EXPECT_EQ(steps->stepDel("a"), replacement);
   EXPECT_EQ(steps->stepDel("a"), nullptr);
}

} // namespace
