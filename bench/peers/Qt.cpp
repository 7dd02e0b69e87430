#include "Names.h"
#include "peers/Peer.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <stdexcept>

namespace kiv::bench {

namespace {

// Makes the application object that Qt needs. It is never destroyed, because it must outlive Qt's connections.
void MakeApplication()
{
    static int count = 1;
    static char name[] = "kiv-bench";
    static char* arguments[] = {name, nullptr};
    static const auto* application = new QCoreApplication(count, arguments);
    static_cast<void>(application);
}

void AddArguments(QDBusMessage& message, Input input)
{
    switch (input) {
    case Input::kNone:
        break;
    case Input::kInt:
        message << 0;
        break;
    case Input::kThreeInts:
        message << 1 << 2 << 3;
        break;
    case Input::kAddress:
    case Input::kName:
        for (const unsigned char byte : kMac) {
            message << QVariant::fromValue(byte);
        }
        message << kIp;
        if (input == Input::kName) {
            message << QString::fromUtf8(kSpeakerName);
        }
        break;
    case Input::kBytes:
        message << QByteArray(reinterpret_cast<const char*>(kMac.data()), kMac.size());
        break;
    }
}

long Decode(Output output, const QVariant& value)
{
    switch (output) {
    case Output::kInt:
        return value.toInt();
    case Output::kBool:
        return value.toBool();
    case Output::kText:
        return !value.toString().isEmpty();
    case Output::kBytes:
        return value.toByteArray().size();
    case Output::kIgnored:
        break;
    }
    return 0;
}

class QtPeer : public Peer {
public:
    QtPeer() : bus_((MakeApplication(), QDBusConnection::systemBus())) {}

    long Call(const Request& request) override
    {
        CheckOwner();
        QDBusMessage id = ToServer(kIdMethod);
        id << static_cast<int>(getpid());
        Send(id, kCallTimeoutMs, Output::kText);
        CheckOwner();
        QDBusMessage message = ToServer(request.method);
        AddArguments(message, request.input);
        return Send(message, kCallTimeoutMs, request.output);
    }

private:
    static QString Text(const char* text) { return QString::fromLatin1(text); }

    static QDBusMessage ToServer(const char* method)
    {
        return QDBusMessage::createMethodCall(
            Text(kServerName), Text(kServerPath), Text(kServerInterface), Text(method));
    }

    void CheckOwner()
    {
        QDBusMessage query =
            QDBusMessage::createMethodCall(Text(kBusName), Text(kBusPath), Text(kBusName), Text(kOwnerMethod));
        query << Text(kServerName);
        if (Send(query, -1, Output::kBool) == 0) {
            throw std::runtime_error("Qt: no server");
        }
    }

    long Send(const QDBusMessage& message, int timeoutMs, Output output)
    {
        const QDBusMessage answer = bus_.call(message, QDBus::Block, timeoutMs);
        if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty()) {
            throw std::runtime_error("Qt: no answer");
        }
        return Decode(output, answer.arguments().constFirst());
    }

    QDBusConnection bus_;
};

} // namespace

std::unique_ptr<Peer> MakeQtPeer()
{
    return std::make_unique<QtPeer>();
}

} // namespace kiv::bench
