// The name of a VRF; the empty name means no VRF.
#pragma once
#include "Kor/BoundedString.h"

namespace L3 {
using VrfName = Kor::BoundedString<100>;
}
