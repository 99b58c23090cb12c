// What a mount asks for and how it ended: Wexa::MountInfo names the kind of mount a type
// wants (its mount type code and access mode); Wexa::MountStatus is reported to the mount
// client when a group of mounts completes.
#pragma once
#include "Kor/Enum.h"

#include <array>
#include <cstdint>
#include <string>

namespace Wexa {

enum class MountStatus : std::uint8_t { mountSuccess_, mountFailure_ };

// Mount type codes are the state database's; callers use named constants.
struct MountInfo {
   std::uint32_t type = 0;
   std::string mode = "r"; // "r" reads, "w" creates and writes
   friend bool operator==(const MountInfo&, const MountInfo&) = default;
};

} // namespace Wexa

template <>
struct Kor::EnumNames<Wexa::MountStatus> {
   static constexpr std::string_view typeName = "Wexa::MountStatus";
   static constexpr std::array<std::string_view, 2> names = {"mountSuccess", "mountFailure"};
};
KOR_ENUM_FORMATTER(Wexa::MountStatus);
