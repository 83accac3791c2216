#pragma once

#include "HVX/Base/Error.h"
#include "HVX/Base/StringUtil.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>

namespace nrq {

// Passed down through every DeserializeBinary; the file's reader fills it.
// Only `version`, the format version of the saved data, is read by the library:
// 4 and up carry the analyzer parameters' body, 5 and up the scan data's info block.
struct SerializeInfo {
    uint32_t word0 = 0;
    uint32_t word1 = 0;
    int32_t version = currentVersion;
    uint32_t word3 = 0;

    static constexpr int32_t currentVersion = 5;
};

class ISerializable {
public:
    virtual ~ISerializable() = default;
    virtual ISerializable* Clone() const = 0;
    virtual const std::string& GetSerialType() const = 0;
    virtual std::string SerializeBinary() const { return {}; }
    virtual void DeserializeBinary(const std::string& data, const SerializeInfo& info) {
        std::string_view view(data);
        DeserializeBinary(view, info);
    }
    // Consumes what it reads from the front of the view.
    virtual void DeserializeBinary(std::string_view& data, const SerializeInfo& info) {
        (void)data;
        (void)info;
    }
};

// Appends a plain field raw, little-endian as it lies in memory.
template <class T>
    requires std::is_trivially_copyable_v<T>
void AppendRaw(std::string& out, const T& value) {
    out.append(reinterpret_cast<const char*>(&value), sizeof(T));
}

// The one cursor through which every binary body is read. A read past the end
// of the view raises "Deserialization ERROR" instead of reading out of bounds.
class BinaryCursor {
public:
    explicit BinaryCursor(std::string_view& view) : view(view) {}

    template <class T>
        requires std::is_trivially_copyable_v<T>
    T Read(std::source_location where = std::source_location::current()) {
        T value;
        std::memcpy(&value, Take(sizeof(T), where).data(), sizeof(T));
        return value;
    }

    template <class T>
        requires std::is_trivially_copyable_v<T>
    void ReadInto(T& value, std::source_location where = std::source_location::current()) {
        value = Read<T>(where);
    }

    // Copies `size` bytes into `target`.
    void ReadBytes(void* target, size_t size, std::source_location where = std::source_location::current()) {
        if (size != 0)
            std::memcpy(target, Take(size, where).data(), size);
    }

    std::string_view Take(size_t size, std::source_location where = std::source_location::current());
    size_t Remaining() const { return view.size(); }

private:
    std::string_view& view;
};

void AppendSerializeString(std::string& out, std::string_view text, size_t maxLength = SIZE_MAX);
std::string ViewDeserializeString(std::string_view& data);

void AppendSerializeObject(std::string& out, const ISerializable* object);
void AppendSerializeObject(std::string& out, std::shared_ptr<ISerializable> object);
// The caller owns the result; null stands for a null record.
ISerializable* ViewDeserializeObject(std::string_view& data, const SerializeInfo& info);
ISerializable* ViewDeserializeObject(const std::string& data, const SerializeInfo& info);

using SerializableTypeMap = std::unordered_map<std::string, std::unique_ptr<ISerializable>, string_hash>;

// Type name to prototype, filled by static SerializableTypes objects before main.
SerializableTypeMap& GetSerializableTypes();

struct SerializableTypes {
    explicit SerializableTypes(std::unique_ptr<ISerializable> prototype);
};

// The mix-in of the fall-back classes that keep an unknown object's bytes.
class IUnknownDeserialized {
public:
    virtual ~IUnknownDeserialized() = default;

    const std::string& GetType() const { return type; }
    const std::string& GetData() const { return data; }
    int32_t GetFormat() const { return format; }
    void SetType(std::string_view newType) { type = newType; }
    void SetData(std::string_view newData) { data = newData; }
    void SetData(const void* bytes, size_t size) { data.assign(static_cast<const char*>(bytes), size); }
    void SetFormat(int newFormat) { format = newFormat; }

protected:
    // The body every fall-back class writes: type, data, format.
    std::string SerializeUnknown() const;
    void DeserializeUnknown(std::string_view& view);

private:
    std::string type;
    std::string data;
    int32_t format = 0;
};

// A fall-back class over `Base`: its body is the kept type, data and format.
template <class Base>
class UnknownDeserializedAs : public Base, public IUnknownDeserialized {
public:
    std::string SerializeBinary() const override { return SerializeUnknown(); }
    // The kept bytes are read whatever the reader's version.
    void DeserializeBinary(std::string_view& view, const SerializeInfo&) override { DeserializeUnknown(view); }
    using Base::DeserializeBinary;
};

class UnknownSerializable : public UnknownDeserializedAs<ISerializable> {
public:
    UnknownSerializable() = default;
    UnknownSerializable(std::string_view type, std::string_view data, int32_t format);

    UnknownSerializable* Clone() const override { return new UnknownSerializable(*this); }
    const std::string& GetSerialType() const override;
};

} // namespace nrq
