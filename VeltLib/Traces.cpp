#include "VeltLib/Traces.h"

namespace Velt {

const Trace::Handle& nhResolverTrace() {
   static const Trace::Handle h("Velt::NHResolver");
   return h;
}

const Trace::Handle& routingTrace() {
   static const Trace::Handle h("Velt::Routing");
   return h;
}

const Trace::Handle& vrfTrace() {
   static const Trace::Handle h("Velt::Vrf");
   return h;
}

const Trace::Handle& nhrPluginTrace() {
   static const Trace::Handle h("Velt::NhrPlugin");
   return h;
}

} // namespace Velt
