#pragma once

#include "core/model/nodes/cmuinode.h"

class CMSetDataRequest;

/**
 * A writable leaf: one typed value that clients read and write within the limits of its edit record.
 *
 * A written value is validated against the edit record and handed to the one validator, which owns the request's
 * reply: it stores the value and finishes the reply. The default one stores and answers true. Runs under mutex() when
 * connected directly; one connected otherwise takes what locks it needs. The mutex given at construction may be shared
 * by several nodes of a service; it must be recursive. Without one the node's own is used.
 */
class CMValueNode : public CMUINode
{
    Q_OBJECT

public:
    explicit CMValueNode(const CMPath& path, QMutex* mutex = nullptr);
    static CMValueNode* create(CMNodes* nodes, const CMPath& path, QMutex* mutex = nullptr);

    QMutex* mutex() const override;
    bool setDataRequest(const CMSetDataRequest& request) override;
    QVariant getRoleData(const QString& role, const Params& params) override;

    OrvoValue value() const;
    bool readOnly() const;
    bool internal() const;
    OrvoEdit edit() const;

    /// Stores as it stands, without the edit record, and tells value and then data subscribers. Equal: does nothing.
    void setValue(const OrvoValue& value);
    /// The value of a bool, integer, double or text; an empty one for any other variant.
    void setVariantValue(const QVariant& variant);
    /// Writes to a read-only node answer false, without an error.
    void setReadOnly(bool readOnly);
    void setInternal(bool internal);
    void setEdit(const OrvoEdit& edit);
    /// Replaces the validator. The slot takes (CMSetDataRequest, OrvoValue).
    void setValidate(QObject* receiver, const char* slot, Qt::ConnectionType type = Qt::AutoConnection);

public slots:
    void validate(CMSetDataRequest request, OrvoValue value);

signals:
    void valueChanged(const OrvoValue& value = OrvoValue()); // clazy:exclude=overloaded-signal,overridden-signal
    void privateValidate(CMSetDataRequest request, OrvoValue value);

private:
    QMutex* const m_valueMutex;
    OrvoValue m_value;
    bool m_readOnly = false;
    bool m_internal = false;
    OrvoEdit m_edit;
};
