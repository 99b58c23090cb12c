// What the test plugins and the tests that load them agree on.
#pragma once

namespace VeltTest {

// The entity the mounting plugin's profile mounts; the plugin notes whether it was there
// when its mounts completed.
inline constexpr const char* mountedStatePath = "test/plugin/state";
// The step the instant plugin adds to the main pipeline.
inline constexpr const char* instantStepName = "VeltTestInstantStep";
// Set by the no-entry library's other entry point when it runs.
inline constexpr const char* altEntryRanVariable = "VELT_TEST_ALT_ENTRY_RAN";

// Set by the entry point of a plugin built for another library version, if it ran.
inline constexpr const char* otherVersionRanVariable = "VELT_TEST_OTHER_VERSION_RAN";
// What the half-set-up plugin registers before it fails, and how it fails.
inline constexpr const char* halfStepName = "VeltTestHalfStep";
inline constexpr const char* halfCheckerName = "VeltTestHalfChecker";
inline constexpr const char* halfThrowVariable = "VELT_TEST_HALF_THROW";

} // namespace VeltTest
