#include "support/TestEnvironment.h"

#include "HVX/Filesystem/Filesystem.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <cctype>
#include <string_view>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

namespace nrq::test {
namespace {

std::filesystem::path CreateRoot() {
    std::string pattern = (std::filesystem::temp_directory_path() / "hvx-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp failed");
    return pattern;
}

} // namespace

const std::filesystem::path& TempRoot() {
    static const std::filesystem::path root = CreateRoot();
    return root;
}

std::filesystem::path MakeTempDir(const std::string& name) {
    static int counter = 0;
    auto dir = TempRoot() / "work" / (name + "-" + std::to_string(++counter));
    std::filesystem::create_directories(dir);
    return dir;
}

std::string ReadFileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteFileBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool IsTimeStampAt(const std::string& text, size_t at) {
    static constexpr std::string_view shape = "[00:00:00] ";
    if (text.size() - at < shape.size())
        return false;
    for (size_t i = 0; i < shape.size(); ++i) {
        const char c = text[at + i];
        if (shape[i] == '0' ? !std::isdigit(static_cast<unsigned char>(c)) : c != shape[i])
            return false;
    }
    return true;
}

std::string LogWithoutTimeStamps() {
    const std::string text = ReadFileBytes(std::string(fs::GetUserSaveDataDirectory()) + "/log.txt");
    std::string out;
    for (size_t i = 0; i < text.size();) {
        if (IsTimeStampAt(text, i)) {
            out += "[T] ";
            i += 11;
        } else {
            out += text[i++];
        }
    }
    return out;
}

std::filesystem::path GerberSamples() {
    return std::filesystem::path(HVX_SHARED_DIR).lexically_normal() / "gerber-samples";
}

bool HaveGerberSamples() { return std::filesystem::is_directory(GerberSamples()); }

int RunCommand(const std::string& command, std::string& output) {
    output.clear();
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (!pipe)
        return -1;
    std::array<char, 4096> buffer{};
    size_t got;
    while ((got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        output.append(buffer.data(), got);
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace nrq::test
