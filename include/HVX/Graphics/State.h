#pragma once

namespace nrq {

// The drawing layer's life cycle; drawing calls join it with the OpenGL layer.
class Graphics {
public:
    Graphics() = delete;

    static void Load(void* loader);
    static void Unload();
    static bool IsLoaded();
};

} // namespace nrq
