#pragma once

#include "core/model/nodes/cmvaluenode.h"

/// A value node that also turns a written query text into a path, which the asker then browses.
class CMQueryNode : public CMValueNode
{
    Q_OBJECT

public:
    explicit CMQueryNode(const CMPath& path);
    static CMQueryNode* create(CMNodes* nodes, const CMPath& path);

    bool setDataRequest(const CMSetDataRequest& request) override;
    QVariant getRoleData(const QString& role, const Params& params) override;

    /// Stores the text without validation and answers the query path with the text as its parameter.
    virtual bool queryRequest(const CMSetDataRequest& request);

    /// The default name of the parameter, "query".
    static QString Query() { return QStringLiteral("query"); }

    QString query() const;
    /// Name of the parameter that carries the text. Not shown to readers, so it reports no change.
    void setQuery(const QString& query);
    CMPath queryPath() const;
    /// The path that is answered; at first the node's own. Not shown to readers.
    void setQueryPath(const CMPath& queryPath);
    CMPath autoCompletePath() const;
    void setAutoCompletePath(const CMPath& autoCompletePath);

private:
    CMPath m_queryPath;
    QString m_query;
    CMPath m_autoCompletePath;
};
