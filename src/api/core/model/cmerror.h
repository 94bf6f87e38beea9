#pragma once

#include <QHash>
#include <QMetaType>
#include <QString>
#include <QVariant>

/**
 * The failure record of a reply: a hash under four keys, without data of its own.
 *
 * A reply has failed exactly when its error has a non-empty name; an empty CMError means no error. A value class.
 */
class CMError : public QHash<QString, QVariant>
{
public:
    CMError() = default;
    explicit CMError(const QHash<QString, QVariant>& hash) : QHash<QString, QVariant>(hash) {}
    CMError(const QString& name, const QString& message, const QString& title);

    static QString Name() { return QStringLiteral("name"); }
    static QString Message() { return QStringLiteral("message"); }
    static QString Title() { return QStringLiteral("title"); }
    /// The hash of an OrvoActionReply.
    static QString ActionReply() { return QStringLiteral("actionReply"); }
    static QString DefaultName() { return QStringLiteral("error"); }
    static QString DefaultTitle() { return QStringLiteral("Error"); }

    QString name() const { return value(Name()).toString(); }
    QString message() const { return value(Message()).toString(); }
    QString title() const { return value(Title()).toString(); }
    bool isError() const { return !isEmpty() && !name().isEmpty(); }
};

Q_DECLARE_METATYPE(CMError)
