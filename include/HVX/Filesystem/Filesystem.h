#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nrq::fs {

void MakeDirectory(std::string_view path);
void Delete(std::string_view path);
bool IsDirectory(std::string_view path);
std::vector<std::string> GetDirectoryItems(std::string_view path);

std::string Read(std::string_view path);
void Write(std::string_view path, std::string_view data);

// The product's folders, computed once on first call.
const std::string_view GetHVX1DataDirectory();
const std::string_view GetSaveDataDirectory();
const std::string_view GetUserSaveDataDirectory();
const std::string_view GetFontDirectory();

} // namespace nrq::fs
