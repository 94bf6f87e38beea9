#pragma once

#include "core/model/nodes/cmuinode.h"

#include <QList>
#include <QVector>

#include <functional>

class OrvoRowsRoles;

/**
 * A node with rows, and the one way in which containers answer requests for them.
 *
 * A row is a variant: a text is the encoded path of a node whose data make up the row, a hash of roles is the row
 * itself. The mutex is not held while rows are read, since a row of path form may block for up to 2,000 ms.
 */
class CMContainerNode : public CMUINode
{
    Q_OBJECT

public:
    /// One stretch of a container's rows.
    struct DynamicContent
    {
        int rowsCount;
        /// Gives `count` rows, at least one, from row `offset` of this stretch on.
        std::function<QList<QVariant>(int offset, int count)> loadRows;
    };
    using DynamicContentList = QList<CMContainerNode::DynamicContent>;

    explicit CMContainerNode(const CMPath& path);
    static CMContainerNode* create(CMNodes* nodes, const CMPath& path);

    QVariant getRoleData(const QString& role, const Params& params) override;

    OrvoRolesContainerType::Enum containerType() const;
    bool activity() const;
    bool fillParent() const;
    bool playable() const;

    void setContainerType(OrvoRolesContainerType::Enum containerType);
    void setActivity(bool activity);
    void setFillParent(bool fillParent);
    void setPlayable(bool playable);
    // Each of these items is a path or a record; the later one replaces the former.
    void setSearchPath(const CMPath& path);
    void setSearch(const OrvoRoles& search);
    void setCancelPath(const CMPath& path);
    void setCancel(const OrvoRoles& cancel);
    void setAcceptPath(const CMPath& path);
    void setAccept(const OrvoRoles& accept);

    /// The path with the parameters over its own; each one overridden is logged.
    static CMPath mergeParams(const CMPath& path, const Params& params);
    /// Rows from one stretch at most; the caller comes back for more. Empty behind the end.
    static QList<QVariant> loadContentData(const DynamicContentList& content, int fromIncluded, int toIncluded);

    /**
     * Answers with the rows asked for, or fewer when they take longer than 200 ms: the asker fetches the rest with a
     * further request. Bad row numbers and a version that is not the present one fail the request; a row of path form
     * that cannot be read shows the error as its title.
     */
    void respondGetRowsRequest(const CMGetRowsRequest& request, const DynamicContentList& content, int rowsVersion,
                               const OrvoRowsRoles& rowsRoles, bool copyPathParams);
    /// The records as rows; a version of -1 stands for the one that the hub keeps for the request's path.
    void respondGetRowsRequest(const CMGetRowsRequest& request, const QVector<OrvoRoles>& rows, int rowsVersion);

public slots:
    /// Tells the readers of the rows to leave the view. Nothing in the node changes.
    void hide();

private:
    QVariant m_search;
    OrvoRolesContainerType::Enum m_containerType = OrvoRolesContainerType::None_;
    bool m_activity = false;
    QVariant m_cancel;
    QVariant m_accept;
    bool m_fillParent = false;
    bool m_playable = false;
};
