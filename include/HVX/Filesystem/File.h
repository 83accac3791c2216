#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nrq {

enum class FileMode : int32_t {
    Read = 0,     // open an existing file for reading
    Write = 1,    // create, replacing an existing file
    WriteNew = 2, // create; fails if the file exists
    None = 3,     // the state of a closed File; illegal as an argument
};

// A thin layer over the platform's file calls: every failure is an Error
// with a fixed wording. Paths are UTF-8 with forward slashes.
class File {
public:
    File();
    explicit File(std::string_view path);
    File(std::string_view path, FileMode mode);
    File(const File& other);
    File(File&& other) noexcept;
    File& operator=(const File& other);
    File& operator=(File&& other) noexcept;
    ~File();

    void Open(FileMode mode);
    void Close();
    bool IsOpen() const;

    FileMode GetFileMode() const { return mode; }
    std::string_view GetFileName() const { return path; }
    std::string GetError();

    size_t GetSize() const;
    size_t GetPosition() const;
    void SetPosition(size_t position);
    bool ReachedEOF() const;

    size_t Read(void* buffer, size_t size);
    std::string Read(size_t size);
    void Write(const void* buffer, size_t size);
    void Write(std::string_view data);

    static std::string Read(std::string_view path, size_t size);
    static void Write(std::string_view path, std::string_view data);
    static std::string GetWorkingDirectory();
    static void SetWorkingDirectory(std::string_view path);

private:
    using Handle = intptr_t;
    static constexpr Handle invalidHandle = -1;

    std::string path;
    Handle handle = invalidHandle;
    FileMode mode = FileMode::None;
    std::string error;
};

} // namespace nrq
