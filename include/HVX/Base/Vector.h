#pragma once

#include <cmath>
#include <cstddef>
#include <type_traits>

namespace nrq {

// The library's small fixed-size vector: N contiguous elements, nothing else.
template <class T, size_t N>
struct Vector {
    T elements[N];

    constexpr Vector() : elements{} {}

    template <class... Args>
        requires(sizeof...(Args) == N && (std::is_convertible_v<Args, T> && ...))
    constexpr Vector(Args... args) : elements{static_cast<T>(args)...} {}

    constexpr T& operator[](size_t i) { return elements[i]; }
    constexpr const T& operator[](size_t i) const { return elements[i]; }

    constexpr T* data() { return elements; }
    constexpr const T* data() const { return elements; }
    static constexpr size_t size() { return N; }

    constexpr T& x() requires(N >= 1) { return elements[0]; }
    constexpr T& y() requires(N >= 2) { return elements[1]; }
    constexpr T& z() requires(N >= 3) { return elements[2]; }
    constexpr T& w() requires(N >= 4) { return elements[3]; }
    constexpr const T& x() const requires(N >= 1) { return elements[0]; }
    constexpr const T& y() const requires(N >= 2) { return elements[1]; }
    constexpr const T& z() const requires(N >= 3) { return elements[2]; }
    constexpr const T& w() const requires(N >= 4) { return elements[3]; }

    constexpr Vector operator+(const Vector& other) const {
        Vector result;
        for (size_t i = 0; i < N; ++i)
            result.elements[i] = elements[i] + other.elements[i];
        return result;
    }
    constexpr Vector operator-(const Vector& other) const {
        Vector result;
        for (size_t i = 0; i < N; ++i)
            result.elements[i] = elements[i] - other.elements[i];
        return result;
    }
    constexpr Vector& operator+=(const Vector& other) { return *this = *this + other; }
    constexpr Vector& operator-=(const Vector& other) { return *this = *this - other; }

    template <class S>
    constexpr Vector operator*(const S& scalar) const {
        Vector result;
        for (size_t i = 0; i < N; ++i)
            result.elements[i] = elements[i] * scalar;
        return result;
    }
    template <class S>
    constexpr Vector operator/(const S& scalar) const {
        Vector result;
        for (size_t i = 0; i < N; ++i)
            result.elements[i] = elements[i] / scalar;
        return result;
    }

    friend constexpr bool operator==(const Vector& a, const Vector& b) {
        for (size_t i = 0; i < N; ++i)
            if (!(a.elements[i] == b.elements[i]))
                return false;
        return true;
    }
    friend constexpr bool operator!=(const Vector& a, const Vector& b) { return !(a == b); }

    // Float vectors: length, normalisation (a zero vector gives NaNs), products.
    T Magnitude() const requires std::is_floating_point_v<T> {
        T sum{};
        for (size_t i = 0; i < N; ++i)
            sum += elements[i] * elements[i];
        return std::sqrt(sum);
    }
    Vector Normalized() const requires std::is_floating_point_v<T> { return *this / Magnitude(); }
    constexpr T Dot(const Vector& other) const requires std::is_floating_point_v<T> {
        T sum{};
        for (size_t i = 0; i < N; ++i)
            sum += elements[i] * other.elements[i];
        return sum;
    }
    constexpr Vector Cross(const Vector& o) const requires(std::is_floating_point_v<T> && N == 3) {
        return Vector(elements[1] * o.elements[2] - elements[2] * o.elements[1],
                      elements[2] * o.elements[0] - elements[0] * o.elements[2],
                      elements[0] * o.elements[1] - elements[1] * o.elements[0]);
    }
};

using Vector2f = Vector<float, 2>;
using Vector3f = Vector<float, 3>;
using Vector4f = Vector<float, 4>;
using Vector2i = Vector<int, 2>;
using Colour = Vector<unsigned char, 4>;

static_assert(sizeof(Vector<float, 3>) == 12 && std::is_standard_layout_v<Vector<float, 3>>);

} // namespace nrq
