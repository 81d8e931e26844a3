// SPDX-License-Identifier: MIT
// Owners of what libmount allocates; the only file of the library that includes its header.
#pragma once

#include <libmount.h>

#include <memory>

#include "base/handles.hpp"

namespace orvel {

using MountTable = std::unique_ptr<libmnt_table, Releaser<mnt_free_table>>;
using MountIterator = std::unique_ptr<libmnt_iter, Releaser<mnt_free_iter>>;

}  // namespace orvel
