#pragma once

#include "core/model/nodes/cmactivatenode.h"

/**
 * An action that shows, as a bool, whether a linked value node holds a given value, and writes this value when it is
 * activated. Its subscribers hear of the linked node through this node's own path. Works on CMRoot(); reading its
 * value blocks until the linked node has answered.
 */
class CMRadioButtonNode : public CMActivateNode
{
    Q_OBJECT

public:
    CMRadioButtonNode(const CMPath& path, const CMPath& linkPath);
    static CMRadioButtonNode* create(CMNodes* nodes, const CMPath& path, const CMPath& linkPath);

    QVariant getRoleData(const QString& role, const Params& params) override;
    QVariant activate(const QVariant& value, const Params& params) override;
    void valuePathAdd(const CMPath& path) override;
    void valuePathRemove(const CMPath& path) override;
    void dataPathAdd(const CMPath& path) override;
    void dataPathRemove(const CMPath& path) override;

    CMPath linkPath() const { return m_linkPath; }
    QVariant value() const;
    /// The value that counts as on. Tells each subscriber anew, as the linked node answers.
    void setValue(const QVariant& value);

private slots:
    void watchedValueChanged(CMPath path, QVariant linkValue);
    void watchedDataChanged(CMPath path);

private:
    const CMPath m_linkPath;
    QVariant m_value;
};
