// The name and the version that the program gives of itself.
#pragma once

// The number comes from the build files, its only place.
inline constexpr char version_string[] = "Vesk " VESK_VERSION;
