// An init watcher is the start of a service that needs values of others before it can do anything.
#include <orvo_kit.h>

#include <QCoreApplication>

#include <iostream>

class Controller : public QObject
{
    Q_OBJECT

public:
    Controller()
    {
        m_brightness =
            m_watcher.newCMValueItem(CMPath::fromEncoded("lamp:brightness"), this, SLOT(brightnessChanged(OrvoValue)));
        m_history = m_watcher.newCMItem(CMPath::fromEncoded("lamp:history"));
        connect(&m_watcher, &CMInitWatcher::done, this, &Controller::start);
    }

private slots:
    void start()
    {
        std::cout << "starts with brightness " << m_brightness->value().i32_() << " and the list "
                  << m_history->roles().title().toStdString() << std::endl;
        CMRoot()->setValue(m_brightness->path(), OrvoValue().setI32_(80));
    }
    /// Not for the first value.
    void brightnessChanged(OrvoValue value)
    {
        std::cout << "brightness " << value.i32_() << std::endl;
        QCoreApplication::quit();
    }

private:
    CMInitWatcher m_watcher{nullptr, "controller"};
    CMValueItem* m_brightness;
    CMItem* m_history;
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    orvoRegisterMetaTypes();
    CMRemoteWorker worker("initwatcher", "lamp");
    CMRoot_setInstance(&worker);

    Controller controller;
    return application.exec();
}

#include "initwatcher.moc"
