#pragma once
// Forward declaration of the selection mask; documents hold it by shared,
// immutable reference, and no selection is an empty pointer.
#include <memory>

namespace korv {
class Selection;
using SelectionRef = std::shared_ptr<const Selection>;
} // namespace korv
