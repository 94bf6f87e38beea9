#pragma once

#include "core/model/cmpath.h"

#include <QExplicitlySharedDataPointer>
#include <QObject>

class CMListRowsNode;
class CMNodes;

/**
 * Base of a dialogue that a service shows through the tree: a list of the form type at one path, which the derived
 * class fills in on_load() when a reader comes along.
 *
 * Without a parent; whoever made it ends it with deleteLater() or by destroying it. The node lives as long as the form.
 * To be used in the thread it lives in, whose event loop brings the calls of on_load().
 */
class OrvoForm : public QObject
{
    Q_OBJECT

public:
    /**
     * The registry outlives the form. Readers that were waiting at the path before are not told to on_load(): they
     * stand in rowsPaths() of the node.
     */
    OrvoForm(CMNodes* nodes, const CMPath& path);
    /// Readers get the change "close"; on_load() is not called any more.
    ~OrvoForm() override;

    /**
     * Takes the node out at once, so readers get the change "close" and leave, of which on_load() still hears; destroys
     * the form by the event loop.
     */
    virtual void deleteLater();

    CMPath path() const { return m_path; }

public slots:
    /// Closes the form for its readers. The node stays, and its rows.
    void hide();
    /**
     * A rows subscription came to the form, or left it: rowsPaths() of the node tells which are there. May destroy the
     * form.
     */
    virtual void on_load() = 0;

protected:
    CMNodes* nodes() const { return m_nodes; }
    /// Null from deleteLater() on.
    CMListRowsNode* listNode() const { return m_listNode.data(); }

private:
    CMNodes* const m_nodes;
    const CMPath m_path;
    /// A reference of its own, as the registry may drop the node before the form goes.
    QExplicitlySharedDataPointer<CMListRowsNode> m_listNode;
};
