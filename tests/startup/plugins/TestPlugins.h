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

} // namespace VeltTest
