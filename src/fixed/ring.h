// Histories: the last rows of something, of which a new one takes the place of the oldest.
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "fixed/cache_line.h"

namespace vsp {

/// The last n rows of a history. Turning it copies nothing: the oldest row becomes the newest, for
/// its owner to overwrite. Holds no pointer into itself, so it can be copied.
template <class Row, int n>
class Ring {
public:
    static constexpr int size = n;

    /// Row 0 is the oldest, n - 1 the newest.
    Row& operator[](int age) { return rows[place(age)]; }
    const Row& operator[](int age) const { return rows[place(age)]; }
    Row& newest() { return (*this)[n - 1]; }

    void turn() { first = place(1); }

    /// Starts anew with the same value in every entry of every row.
    template <class Value>
    void fill(const Value& value)
    {
        for (Row& row : rows)
            std::fill(std::begin(row), std::end(row), value);
        first = 0;
    }

private:
    int place(int age) const { return first + age < n ? first + age : first + age - n; }

    alignas(kLine) Row rows[n] = {};
    int first = 0;
};

/// Brings plain values, arrays and rings of them to 0: silence.
template <class... T>
void clear(T&... values)
{
    static_assert((std::is_trivially_copyable_v<T> && ...));
    (std::memset(static_cast<void*>(&values), 0, sizeof values), ...);
}

} // namespace vsp
