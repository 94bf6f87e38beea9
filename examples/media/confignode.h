#pragma once

#include "configdocument.h"

#include "core/model/nodes/cmvariantnode.h"

/**
 * The configuration of the service: one document, the only holder of the settings, that clients read and write as a
 * whole, by group or by setting. It always holds all settings, each within its limits; a write that does not fit
 * answers false and changes nothing. A setting is written as a plain number or as a value record.
 *
 * Owned by the registry.
 */
class ConfigNode : public CMVariantNode
{
    Q_OBJECT

public:
    explicit ConfigNode(const CMPath& path);
    static ConfigNode* create(CMNodes* nodes, const CMPath& path, const QVariantHash& document);

    bool request(CMRequest request) override;

    int number(const ConfigDocument::Setting& setting) const;
    void setNumber(const ConfigDocument::Setting& setting, int number);

signals:
    /// In the thread that wrote, with this node's mutex free.
    void changed(const QVariantHash& document);

private:
    bool write(const CMSetDataRequest& request, const QString& place);
};
