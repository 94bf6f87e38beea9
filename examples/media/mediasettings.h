#pragma once

#include "configdocument.h"

#include "core/model/cmrequest.h"
#include "records/orvovalue.h"

#include <QList>
#include <QObject>

class CMListRowsNode;
class CMNodesWorker;
class CMValueNode;
class ConfigNode;

/**
 * The settings for people: "settings" with "sortBy" and "showHidden", which show what the configuration holds and hand
 * on to it what is written to them.
 *
 * Lives in the service's thread; the registry of the worker owns the nodes and outlives this object.
 */
class MediaSettings : public QObject
{
    Q_OBJECT

public:
    MediaSettings(CMNodesWorker* worker, ConfigNode* config, QObject* parent = nullptr);

    CMPath path() const;

private slots:
    void on_validate(const CMSetDataRequest& request, const OrvoValue& value);

private:
    struct Entry
    {
        CMValueNode* node;
        ConfigDocument::Setting setting;
    };

    void add(CMNodesWorker* worker, const QString& name, const char* title, const char* description,
             const ConfigDocument::Setting& setting);
    void showValues();

    ConfigNode* const m_config;
    CMListRowsNode* m_list;
    QList<Entry> m_entries;
};
