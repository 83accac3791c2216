#include "HVX/Base/Serialize.h"

#include <algorithm>
#include <limits>

namespace nrq {

static constexpr std::string_view deserializationError = "Deserialization ERROR";

std::string_view BinaryCursor::Take(size_t size, std::source_location where) {
    Assert(view.size() >= size, deserializationError, where);
    std::string_view taken = view.substr(0, size);
    view.remove_prefix(size);
    return taken;
}

void AppendSerializeString(std::string& out, std::string_view text, size_t maxLength) {
    const size_t length = std::min({text.size(), maxLength, size_t{std::numeric_limits<uint32_t>::max()}});
    AppendRaw(out, static_cast<uint32_t>(length));
    out.append(text.data(), length);
}

std::string ViewDeserializeString(std::string_view& data) {
    BinaryCursor cursor(data);
    const auto length = cursor.Read<uint32_t>();
    // The remaining length is compared as a 32-bit number, as the format always has.
    Assert(static_cast<uint32_t>(data.size()) >= length, deserializationError);
    return std::string(cursor.Take(length));
}

void AppendSerializeObject(std::string& out, const ISerializable* object) {
    if (!object) {
        AppendSerializeString(out, {});
        AppendSerializeString(out, {});
        return;
    }
    AppendSerializeString(out, object->GetSerialType());
    AppendSerializeString(out, object->SerializeBinary());
}

void AppendSerializeObject(std::string& out, std::shared_ptr<ISerializable> object) {
    AppendSerializeObject(out, object.get());
}

ISerializable* ViewDeserializeObject(std::string_view& data, const SerializeInfo& info) {
    std::string type = ViewDeserializeString(data);
    std::string body = ViewDeserializeString(data);
    if (type.empty())
        return nullptr;
    int32_t format = info.version;
    const SerializableTypeMap& types = GetSerializableTypes();
    for (;;) {
        const auto found = types.find(type);
        if (found == types.end())
            break;
        std::unique_ptr<ISerializable> object(found->second->Clone());
        object->DeserializeBinary(body, info);
        const auto* wrapped = dynamic_cast<const IUnknownDeserialized*>(object.get());
        if (!wrapped)
            return object.release();
        // A wrapper written by an older library: unwrap and try the inner type.
        type = wrapped->GetType();
        body = wrapped->GetData();
        format = wrapped->GetFormat();
    }
    return new UnknownSerializable(type, body, format);
}

ISerializable* ViewDeserializeObject(const std::string& data, const SerializeInfo& info) {
    std::string_view view(data);
    return ViewDeserializeObject(view, info);
}

SerializableTypeMap& GetSerializableTypes() {
    static SerializableTypeMap types = [] {
        SerializableTypeMap map(8);
        map.max_load_factor(1.0f);
        return map;
    }();
    return types;
}

SerializableTypes::SerializableTypes(std::unique_ptr<ISerializable> prototype) {
    std::string name = prototype->GetSerialType();
    GetSerializableTypes().try_emplace(std::move(name), std::move(prototype));
}

std::string IUnknownDeserialized::SerializeUnknown() const {
    std::string out;
    AppendSerializeString(out, type);
    AppendSerializeString(out, data);
    AppendRaw(out, format);
    return out;
}

void IUnknownDeserialized::DeserializeUnknown(std::string_view& view) {
    type = ViewDeserializeString(view);
    data = ViewDeserializeString(view);
    BinaryCursor(view).ReadInto(format);
}

UnknownSerializable::UnknownSerializable(std::string_view type, std::string_view data, int32_t format) {
    SetType(type);
    SetData(data);
    SetFormat(format);
}

const std::string& UnknownSerializable::GetSerialType() const {
    static const std::string name = "UnknownSerializable";
    return name;
}

static SerializableTypes registerUnknownSerializable(std::make_unique<UnknownSerializable>());

} // namespace nrq
