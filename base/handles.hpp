// Owners of the C resources that the library holds, named on the line that acquires them:
//     const MallocString resolved(realpath(path, nullptr));
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace orvel {

template <auto Release>
struct Releaser {
    template <class T>
    void operator()(T *owned) const noexcept {
        Release(owned);
    }
};

using File = std::unique_ptr<std::FILE, Releaser<std::fclose>>;
using MallocString = std::unique_ptr<char, Releaser<std::free>>;

}  // namespace orvel
