#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

/**
 * What goes to stdout: lines and aligned tables for people, or JSON documents.
 *
 * Every line is written at once. When nobody reads any more, the process ends there and then, quietly and with
 * success: what is downstream has all that it wanted.
 */
class Output
{
public:
    enum class Json { None, Short, Pretty };

    explicit Output(Json json);

    bool isJson() const { return m_json != Json::None; }
    /// One document: a line, or several in the pretty form.
    void document(const QVariant& document);
    /// One document on one line, whatever was asked for.
    void documentLine(const QVariant& document);
    /// Control characters are shown as escapes: a line stays a line, and a text cannot steer the terminal.
    void line(const QString& text);
    /// Columns as wide as their widest cell; without a header when it is empty. Cells are shown as in line().
    void table(const QStringList& header, const QVector<QStringList>& rows);
    /// As it stands.
    void text(const QString& text);

    static bool isTerminal();
    /// The text with control characters as escapes.
    static QString visible(const QString& text);
    /// One line on stderr.
    static void error(const QString& text);

private:
    const Json m_json;
    const bool m_colours;
};
