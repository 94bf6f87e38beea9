#pragma once

class QVariant;

/// A hash of the value by its type. A type that records do not hold stops the process.
int orvoHash(const QVariant& value);

/**
 * An order of values for keeping rows sorted. Numbers compare with the sign reversed against texts: the greater a, the
 * smaller the result. Doubles closer than 1 compare as equal.
 *
 * Lists and hashes must differ where both still have elements: a walk that reaches an end stops the process.
 */
int orvoCompare(const QVariant& a, const QVariant& b);
