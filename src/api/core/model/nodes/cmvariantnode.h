#pragma once

#include "core/model/cmrequest.h"
#include "core/model/nodes/cmnode.h"

#include <QVariant>

/**
 * Serves a whole document, one variant, as a subtree: a hash is a container whose rows are its keys in no fixed order,
 * a list is a container whose rows are its indices, anything else is a leaf.
 *
 * There are no nodes for the inner paths; this one takes every request at or below its path and walks the document
 * along it, under its mutex. A client's write of the role "value" stores the value as it comes, makes the hashes and
 * lists on its way where nothing is yet, and lets a list grow to the index. Values are told at each level from the leaf
 * up, rows always as a reset; there are no rows versions.
 */
class CMVariantNode : public CMNode
{
    Q_OBJECT

public:
    explicit CMVariantNode(const CMPath& path);
    static CMVariantNode* create(CMNodes* nodes, const CMPath& path);

    /// A match-row request is not served.
    bool request(CMRequest request) override;

    /// The root's title; those below have their key or index.
    QString title() const;
    QVariant value() const;
    bool readOnly() const;

    void setTitle(const QString& title);
    /// Whether clients may write. All paths are told.
    void setReadOnly(bool readOnly);
    /// The whole document. All paths are told.
    void setValue(const QVariant& value);
    /// As a client writes it, and without a word when it is refused.
    void setValueAt(const QString& subPath, const QVariant& value);
    /// Tells the data and rows subscribers at and below the path, by default the node's own, to read anew.
    void nextVersion(const CMPath& path);

    // The steps of a request, called with mutex() held.

    /**
     * Takes the request one level down from the value at currentPath, and answers it where it arrives. Returns what
     * that level holds afterwards; meaningless unless the request is a write and its reply has no error.
     */
    QVariant processRequest(const CMPath& requestPath, const CMPath& currentPath, const QString& title, QVariant value,
                            CMRequest& request);
    void handleGetDataRequest(const CMPath& path, const QString& title, const QVariant& value,
                              CMGetDataRequest request);
    /// The rows are within the document or beyond its end; a negative one stops the process.
    void handleGetRowsRequest(const CMPath& path, const QString& title, const QVariant& value,
                              CMGetRowsRequest request);

private:
    QVariant arrive(const CMPath& path, const QString& title, const QVariant& value, const CMRequest& request);

    QString m_title;
    QVariant m_value;
    const QChar m_separator;
    bool m_readOnly = false;
};
