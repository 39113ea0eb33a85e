// The marks round a test module's settings, behind the library in its file.
#pragma once

inline constexpr char kSettingsBegin[] = "\nSETTINGS OF A TEST MODULE\n";
inline constexpr char kSettingsEnd[] = "\nEND OF THE SETTINGS\n";
