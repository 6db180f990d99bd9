// The application and the library are two binaries that share types. Each binary contains its own instance of the
// template ParserAbstract<SessionInit>. An object or exception from one binary must have the same type in the other
// binary, because otherwise dynamic_cast fails and the exception is not caught.
#include "support/common/throws.h"

#include <device/communicator.h>
#include <device/sessioninit.h>
#include <nmea/exception.h>
#include <nmea/parserinit.h>

#include <QBuffer>
#include <QtTest>

#include <typeinfo>

namespace {

using InitTables = Nmea::ParserAbstract<JwDevice::SessionInit>;

class Refusal : public Nmea::Exception
{
public:
    using Nmea::Exception::Exception;
};

class RefusingParser : public Nmea::ParserInit
{
public:
    bool build(const JwDevice::SessionAbstract *, QString &) override { throw Refusal(QStringLiteral("Refused")); }
};

} // namespace

class TestTypeIdentity : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exceptionOfTheLibraryIsCaughtByTheApplication();
    void exceptionOfTheApplicationIsCaughtByTheLibrary();
    void parserOfTheLibraryIsCastByTheApplication();
    void parserOfTheApplicationIsCastBack();
};

void TestTypeIdentity::exceptionOfTheLibraryIsCaughtByTheApplication()
{
    Nmea::ParserInit parser;
    JwDevice::SessionInit session; // sentenceId is 0, so build() throws
    QString sentence;
    QVERIFY(throws<Nmea::Exception>([&] { parser.build(&session, sentence); }));
    try {
        parser.build(&session, sentence);
    } catch (const std::exception &exception) {
        QVERIFY(typeid(exception) == typeid(Nmea::Exception));
        QVERIFY(dynamic_cast<const Nmea::Exception *>(&exception));
    }
}

void TestTypeIdentity::exceptionOfTheApplicationIsCaughtByTheLibrary()
{
    QBuffer device;
    QVERIFY(device.open(QIODevice::ReadWrite));
    RefusingParser parser;
    JwDevice::Communicator communicator;
    communicator.setIODevice(&device);
    communicator.setParser(&parser);
    const JwDevice::SessionInit session;
    QCOMPARE(communicator.writePayload(&session), 0U);
}

void TestTypeIdentity::parserOfTheLibraryIsCastByTheApplication()
{
    Nmea::ParserInit parser;
    JwDevice::IPayloadParser *asPayloadParser = &parser;
    QVERIFY(typeid(*asPayloadParser) == typeid(Nmea::ParserInit));
    auto *tables = dynamic_cast<InitTables *>(asPayloadParser);
    QVERIFY(tables == &parser);
    QVERIFY(dynamic_cast<JwDevice::IPayloadParser *>(tables) == asPayloadParser);
}

void TestTypeIdentity::parserOfTheApplicationIsCastBack()
{
    RefusingParser parser;
    JwDevice::IPayloadParser *asPayloadParser = &parser;
    QVERIFY(dynamic_cast<InitTables *>(asPayloadParser) == &parser);
    QVERIFY(dynamic_cast<Nmea::ParserInit *>(asPayloadParser) == &parser);
    QVERIFY(dynamic_cast<RefusingParser *>(static_cast<InitTables *>(&parser)) == &parser);
}

QTEST_APPLESS_MAIN(TestTypeIdentity)
#include "tst_typeidentity.moc"
