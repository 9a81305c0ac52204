// Histories: the last rows of something, of which a new one takes the place of the oldest.
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <type_traits>

namespace vsp {

/// Where the last n rows of a history lie among as many. Turning copies nothing: the oldest row
/// becomes the newest, for its owner to overwrite.
template <int n>
class RingPlace {
public:
    /// Age 0 is the oldest row, n - 1 the newest.
    int operator[](int age) const { return first + age < n ? first + age : first + age - n; }
    void turn() { first = (*this)[1]; }
    void reset() { first = 0; }

private:
    int first = 0;
};

/// A history of small rows. Holds no pointer into itself, so it can be copied.
template <class Row, int n>
class Ring {
public:
    static constexpr int size = n;

    Row& operator[](int age) { return rows[place[age]]; }
    const Row& operator[](int age) const { return rows[place[age]]; }
    Row& newest() { return (*this)[n - 1]; }

    void turn() { place.turn(); }

    /// Starts anew with the same value in every entry of every row.
    template <class Value>
    void fill(const Value& value)
    {
        for (Row& row : rows)
            std::fill(std::begin(row), std::end(row), value);
        place.reset();
    }

private:
    RingPlace<n> place;
    Row rows[n] = {};
};

/// Brings plain values, arrays and rings of them to 0: silence.
template <class... T>
void clear(T&... values)
{
    static_assert((std::is_trivially_copyable_v<T> && ...));
    (std::memset(static_cast<void*>(&values), 0, sizeof values), ...);
}

} // namespace vsp
