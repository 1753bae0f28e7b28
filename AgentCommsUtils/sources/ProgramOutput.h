#pragma once

#include <tl/expected.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace quorl {

/// A program to run without a shell. It gets this environment and no other, no descriptors but
/// its output, and a process group of its own.
struct ProgramRun {
    std::string path;
    std::vector<std::string> arguments;
    std::vector<std::string> environment;  ///< "NAME=value"
    std::chrono::milliseconds timeLimit = std::chrono::seconds(10);
    std::size_t largestOutput = std::size_t{1} << 20;
};

/// Everything that the program writes to standard output until it and its children have closed it.
/// Blocks the caller for at most the time limit. A program that cannot be started, takes longer or
/// writes more gives the reason. Nothing of its process group outlives the call.
tl::expected<std::string, std::string> readProgramOutput(const ProgramRun& run);

}  // namespace quorl
