// The library's header must come before Qt's headers. Qt defines a macro "signals", and GLib has a field of that name.
#include <KivServiceInterface.h>

#include <QCoreApplication>
#include <QFutureWatcher>
#include <QtConcurrent>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QFutureWatcher<int> channels;
    // Qt calls this function in the event loop of the thread that made the watcher, which is the thread of the user
    // interface.
    QObject::connect(&channels, &QFutureWatcher<int>::finished, &application, [&channels] {
        std::printf("%d surround channels\n", channels.result());
        QCoreApplication::quit();
    });
    channels.setFuture(QtConcurrent::run(GetSurroundChannelNumber));

    QCoreApplication::exec();
    return CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}
