#pragma once

class QString;

/// The text by which others are compared with it: letters that differ in case or accents only are the same.
QString foldedText(const QString& text);
