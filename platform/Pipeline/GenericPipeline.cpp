#include "Pipeline/GenericPipeline.h"

#include "Pelin/Exception.h"

#include <algorithm>

namespace Velt {

GenericPipelineStep::GenericPipelineStep(const Pelin::String& name, unsigned int priority,
                                         const Pelin::String& pipelineName)
    : name_(name), priority_(priority), pipelineName_(pipelineName) {}

void GenericPipelineSteps::stepIs(const Pelin::Ptr<GenericPipelineStep>& step) {
   if (!step) throw Pelin::NullArgumentException("step");
   if (step->pipelineName() != name_) {
      throw Pelin::RangeException("step " + step->name() + " belongs to pipeline " +
                                  step->pipelineName() + ", not to " + name_);
   }
   stepDel(step->name());
   auto pos = std::upper_bound(
       steps_.begin(), steps_.end(), step->priority(),
       [](unsigned int prio, const auto& s) { return prio < s->priority(); });
   steps_.insert(pos, step);
}

Pelin::Ptr<GenericPipelineStep> GenericPipelineSteps::stepDel(const Pelin::String& stepName) {
   auto it = std::find_if(steps_.begin(), steps_.end(),
                          [&](const auto& s) { return s->name() == stepName; });
   if (it == steps_.end()) return nullptr;
   Pelin::Ptr<GenericPipelineStep> old = *it;
   steps_.erase(it);
   return old;
}

Pelin::Ptr<GenericPipelineStep> GenericPipelineSteps::step(const Pelin::String& stepName) const {
   for (const auto& s : steps_) {
      if (s->name() == stepName) return s;
   }
   return nullptr;
}

bool GenericPipeline::process(const Pelin::Ptr<GenericPipelineContext>& ctx) const {
   return processWith(ctx, [](const GenericPipelineStep&) { return std::optional<bool>(); });
}

Pelin::Ptr<GenericPipelineSteps> genericPipelineStepsFactory(const Pelin::String& name) {
   return Pelin::make<GenericPipelineSteps>(name);
}

Pelin::Ptr<GenericPipeline>
genericPipelineFactory(const Pelin::Ptr<GenericPipelineSteps>& steps) {
   return Pelin::make<GenericPipeline>(steps);
}

} // namespace Velt
