#pragma once

// Files as every command reads and writes them: "-" is standard input or
// output, failures name the file and the system's reason in the same words.

#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace halvex {

// "cannot read PATH: REASON" / "cannot write PATH: REASON".
class FileError : public std::runtime_error {
public:
    FileError(std::string path, std::string reason, bool writing);
    const std::string& Path() const { return path; }
    const std::string& Reason() const { return reason; }

private:
    std::string path;
    std::string reason;
};

// How a path shows in messages: "standard input" for "-" when reading.
std::string ShownName(const std::string& path, bool writing);

// The whole file, or standard input for "-".
std::string ReadWholeFile(const std::string& path);

// Writes next to the target and renames, so a reader never sees half a file;
// "-" writes to standard output. Raises FileError.
void WriteWholeFile(const std::string& path, std::string_view bytes);

// An open file for reading a piece at a time; "-" is standard input.
class InputFile {
public:
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Exactly `size` bytes, or fewer at the end of the file.
    std::string Read(size_t size);
    // The size of a regular file; -1 for a pipe or a terminal.
    int64_t Size() const { return size; }
    const std::string& Path() const { return path; }

private:
    std::string path;
    std::FILE* file = nullptr;
    int64_t size = -1;
};

// An output as named on the command line: "--out" and its path.
struct Output {
    std::string option;
    std::string path;
};

// Refuses, with a UsageError naming the option and the path, what cannot be
// written: a missing folder, a folder given as the file, a place without
// write permission, and two outputs (or an output and an input) that are one file.
void CheckOutputs(const std::vector<Output>& outputs, const std::vector<std::string>& inputs = {});

// Refuses, with a UsageError, an output whose file system has no room for
// about `bytes` more (the file is written beside the old one, then renamed).
void CheckRoom(const Output& output, uint64_t bytes);

// Writes the file; when that fails, writes the same bytes into a rescue place
// and says so on stderr. Returns where the bytes went, or "" when nowhere
// (also said on stderr). `what` names the contents: "the scan file".
std::string WriteWithRescue(const std::string& path, std::string_view bytes, std::string_view what);

} // namespace halvex
