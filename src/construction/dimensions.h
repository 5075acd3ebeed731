/// The dimensions of a new array: those given by `size`, those found in the
/// data, and the one held against the other.
#pragma once

#include <Python.h>

#include "construction/array_builder.h"

#include <string>

namespace vellum
{
/// Reads `size`, a sequence of nonnegative integers, into its normal form: at
/// least two entries, (1, d) for one, and no trailing 1 behind the second.
Dimensions readSizeArgument(PyObject* size);

/// Drops trailing 1s; two dimensions always stay.
void trimDimensions(Dimensions& dims);

/// Brings the dimensions found into their final form: no trailing 1s, and (1, d) for
/// flat data, or (0, 0) without elements. With `size` flat data stays (d).
void finishInitializerDims(MDArrayBuilder& builder);

/// Holds the dimensions found against those given: `ShapeError` if the counts
/// differ, `SizeError` if only the shapes do. Flat data passes any shape of its
/// count and is then read column by column.
void checkSizeAgainstInitializer(MDArrayBuilder& builder);

/// "2, 3"
std::string dimsToText(const Dimensions& dims);

} // namespace vellum
