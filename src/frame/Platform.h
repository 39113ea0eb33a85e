// The operating system's services: shell commands, shared objects, places.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Morvu {

// Where a partition is mounted to be read, and where operations keep test files.
inline constexpr std::string_view kTestFolder = "/mnt/MorvuTestFolder";

// The name of the running system: "Linux".
std::string GetOsName();

// Runs a shell command line, in the locale "C", and appends its output lines, without
// their line feeds. False, with nothing appended, if it could not be run or its output not
// be read to the end; its exit status tells nothing else.
bool RunCommand(const std::string& command, std::vector<std::string>& lines);

// The same for the effect; its result is not examined.
void RunSystem(const std::string& command);

// The directory of the running program with its last "/"; empty on failure.
std::string GetExecutableDirectory();

// The local time of now in a form of strftime(3), of at most 63 characters.
std::string FormatLocalTime(const char* form);

// Lets time pass for the calling thread: the waits of operations on drives.
void SleepFor(std::chrono::milliseconds time);

// The time since the machine's start, its sleeps included: what operations on drives measure
// their limits by.
std::chrono::milliseconds GetUptime();

// Removes the test files whose names begin with `prefix`. A prefix with a
// character that a shell or `find` would read otherwise removes nothing.
void RemoveTestFiles(std::string_view prefix);

// A loaded shared object; it is unloaded with its last owner.
using Library = std::shared_ptr<void>;
// Null when the object cannot be loaded.
Library LoadLibrary(const std::string& path);
// Null when there is no such symbol.
void* GetSymbol(const Library& library, const char* name);

}  // namespace Morvu
