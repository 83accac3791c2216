#include "ScanFileInput.h"

#include "HostFiles.h"

namespace halvex {

ScanFileContents LoadScanFile(const std::string& path, size_t* bytesRead) {
    InputFile input(path);
    const std::string shown = ShownName(path, false);
    try {
        std::string bytes = input.Read(scanFileHeaderSize);
        const ScanFileHeader header = ReadScanFileHeader(bytes, input.Size());
        bytes += input.Read(header.length);
        // A pipe's length shows only now: one byte more means too many.
        if (input.Size() < 0 && !input.Read(1).empty())
            throw ScanFileError("more bytes follow the records, where the file should end");
        if (bytesRead)
            *bytesRead = bytes.size();
        return ReadScanFile(bytes);
    } catch (const ScanFileError& error) {
        throw ScanFileError(shown + ": " + error.what());
    }
}

} // namespace halvex
