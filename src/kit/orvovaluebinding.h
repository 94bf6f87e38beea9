#pragma once

#include <QObject>
#include <QString>
#include <QVariant>

class CMValueItem;
class OrvoValue;

/**
 * The value of the node at one path as properties that QML binds to: read, followed and written. An application makes
 * it known to its engine with qmlRegisterType<OrvoValueBinding>(); this library does not need QML itself.
 *
 *     ValueBinding { id: volume; path: "player:volume" }
 *     Slider { value: volume.value || 0; onMoved: volume.value = value }
 *
 * A write asks the node and changes nothing here: `value` changes when the node tells its new value, which may be
 * another one than was written. A write while loading waits for the type that the node's value has; of several that
 * wait, the last one goes. A new path drops it.
 *
 * Owned by its parent, or by the QML engine. Lives in one thread, whose event loop brings values and replies, and
 * speaks to CMRoot(). May be destroyed at any time, also inside its own signals.
 */
class OrvoValueBinding : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString path READ path WRITE setPath NOTIFY pathChanged)
    Q_PROPERTY(QVariant value READ value WRITE setValue NOTIFY valueChanged)
    Q_PROPERTY(bool loading READ isLoading NOTIFY loadingChanged)

public:
    explicit OrvoValueBinding(QObject* parent = nullptr);
    ~OrvoValueBinding() override;

    /// Encoded, as in CMPath::toEncoded().
    QString path() const;
    /// The bool, number, text or list of numbers; invalid, which QML calls undefined, while there is none.
    QVariant value() const;
    bool isLoading() const;

    /// An empty path follows nothing.
    void setPath(const QString& path);
    /// Converts to the type of the node's value; a node without a value is given what the variant is by itself.
    void setValue(const QVariant& value);

signals:
    void pathChanged();
    void valueChanged();
    void loadingChanged();
    /// A write came to nothing. The reason is for people; a control that shows what was written goes back to `value`.
    void refused(const QString& reason);

private:
    void on_item_changed(const OrvoValue& value, const OrvoValue& oldValue);
    void on_item_loadingChanged(bool loading);
    void write(const QVariant& value);

    CMValueItem* const m_item;
    /// What was written while loading; invalid when nothing was.
    QVariant m_waiting;
};
