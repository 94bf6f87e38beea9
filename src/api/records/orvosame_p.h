#pragma once

class QVariant;

/**
 * As a == b, for the many comparisons that decide whether a report is one: two hashes, texts or numbers of one type are
 * compared where they lie, without QVariant's way through the conversions.
 */
bool orvoSameValue(const QVariant& a, const QVariant& b);
