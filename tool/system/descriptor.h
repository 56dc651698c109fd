// SPDX-License-Identifier: BSD-3-Clause
// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace kxtool {

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() { close(); }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number_, other.number_);
        return *this;
    }

    /// @return negative when there is none.
    int get() const { return number_; }
    bool isOpen() const { return number_ >= 0; }
    void close()
    {
        if (number_ >= 0) ::close(std::exchange(number_, -1));
    }

private:
    int number_;
};

} // namespace kxtool
