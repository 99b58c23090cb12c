// The rule that names a Linux interface for the switch state: the loopback device is
// Loopback0, every other interface with ifindex N is Ethernet<N>. Interface names in the
// state are limited to the switch's own forms, so the Linux name travels beside it.
#pragma once
#include "kernel/KernelState.h"
#include "Lumo/IntfId.h"

#include <stdexcept>

namespace VeltLinux {

class ImportError : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// Raises ImportError for an ifindex beyond what Ethernet<N> can hold (65535).
Lumo::IntfId toolInterfaceOf(const KernelLink& link);

} // namespace VeltLinux
