#pragma once

// Identity of this build. main refuses to start when a field is empty: an empty
// field means the build was assembled wrongly.
namespace BuildIdentity {
inline constexpr const char appVersion[] = "Morvanta.03.20260616.0";
inline constexpr const char *fields[8] = {"116", "3", "2026", "6", "16", "0", "R", "0"};
} // namespace BuildIdentity
