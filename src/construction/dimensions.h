/// The dimensions of a new array: those given by `size`, those found in the
/// data, and the one held against the other. `bool` results: false means that a
/// Python error is set.
#pragma once

#include "construction/array_builder.h"

#include <optional>
#include <string>

namespace vellum
{
/// Reads `size`, a sequence of nonnegative integers, into its normal form: at
/// least two entries, (1, d) for one, and no trailing 1 behind the second.
/// Nothing with a Python error if it is no such sequence.
std::optional<Dimensions> readSizeArgument(PyObject* size);

/// Drops trailing 1s; two dimensions always stay.
void trimDimensions(Dimensions& dims);

/// Flat data: (d) becomes (1, d), or (0, 0) without elements. With `size` it
/// stays (d), and `stagedCount` must be the number of elements of `size`.
bool finishInitializerDims(BuilderDimensions& builder, std::uint64_t stagedCount);

/// Drops trailing 1s of the dimensions found.
void trimInitializerDims(BuilderDimensions& builder);

/// Holds the dimensions found against those given: `ShapeError` if the counts
/// differ, `SizeError` if only the shapes do. Flat data passes any shape of its
/// count and is then read column by column.
bool checkSizeAgainstInitializer(BuilderDimensions& builder);

/// "2, 3"
std::string dimsToText(const Dimensions& dims);

} // namespace vellum
