#pragma once

namespace nrq {

// One untyped pointer for the owner's use; the library never reads it.
class UserDataContainer {
public:
    void* GetUserData() { return userData; }
    const void* GetUserData() const { return userData; }
    void SetUserData(void* data) { userData = data; }

private:
    void* userData = nullptr;
};

} // namespace nrq
