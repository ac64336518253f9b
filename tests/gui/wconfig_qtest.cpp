// The device configuration pages and their form fields: checks and formats
// of the fields, duration conversions, and against a simulated unit the
// records each page shows, saves that change exactly the edited member,
// refused input, Cancel, the measurement presets, alarms, WiFi search, file
// save settings and the general page's commands.

#include "control.h"
#include "guimessagesdouble.h"
#include "simserver.h"
#include "simunit.h"
#include "wconfig.h"
#include "wconfigfilesave.h"
#include "wconfigmeasurement.h"
#include "wconfigwifi.h"
#include "zformaddress.h"
#include "zformcombo.h"
#include "zformduration.h"
#include "zformknob.h"
#include "zformtext.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <qwt_knob.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>

using namespace TavroApi;

namespace {

// The unit's records as the simulated unit holds them.
struct Snap {
    Configuration c;
    MeasurementConfig m;
    AwgConfig a;
    bool operator==(const Snap& o) const {
        return !memcmp(&c, &o.c, sizeof(c)) && !memcmp(&m, &o.m, sizeof(m)) &&
               !memcmp(&a, &o.a, sizeof(a));
    }
};

// A simulated unit, a control object and the pages, in the test process.
struct Rig {
    Rig() : unit(TavroSim::SimOptions()), server(unit) {
        ok = !server.start("127.0.0.1", 0) && !control.init();
    }
    ~Rig() {
        config.reset();
        control.unitsDisconnect();
        server.stop();
    }
    // Connects, with odd values in the records that a page must not touch.
    bool connect() {
        Configuration c = unit.configuration();
        setCharArray(c.name, "Bench 1");
        c.networkAddress = 0xC0A8010A;
        c.alarms[0].levelLow = 0.1f + 1e-7f;
        c.mqttPort = 1883;
        if (unit.setConfiguration(c))
            return false;
        ZString url = "zoapn://127.0.0.1:" + ZString(unsigned(server.port()));
        if (control.unitAdd(url, url) || control.unitsConnect())
            return false;
        MeasurementConfig m = unit.measurementConfig();
        m.triggerLevel = 1.0f / 3.0f;
        m.sampleRate = 4000.0;
        m.numSamples0 = 1000;
        AwgConfig a = unit.awgConfig();
        a.amplitude = 1.2345678f;
        a.frequency = 50.0f;
        if (control.setMeasurementConfig(false, m) || control.setAwgConfig(false, a) ||
            control.update())
            return false;
        make();
        return true;
    }
    void make() { config.reset(new WConfig(control)); }
    Snap snap() const {
        return Snap{unit.configuration(), unit.measurementConfig(), unit.awgConfig()};
    }
    // The field of label on any page.
    ZFormField* field(const QString& label) const {
        for (int i = 0; i < config->pageCount(); i++)
            if (ZFormPage* p = qobject_cast<ZFormPage*>(config->page(i)))
                if (ZFormField* f = p->field(label))
                    return f;
        return nullptr;
    }
    // Types text into the field (a choice: picks the entry of that text).
    void edit(const QString& label, const QString& text) {
        ZFormField* f = field(label);
        QVERIFY2(f, qPrintable(label));
        if (auto* c = qobject_cast<ZFormCombo*>(f))
            c->comboBox()->setCurrentIndex(c->choices().indexOf(text));
        else if (auto* n = qobject_cast<ZFormNumber*>(f))
            n->setText(text);
        else if (auto* k = qobject_cast<ZFormKnob*>(f))
            k->number()->setText(text);
        else if (auto* t = qobject_cast<ZFormText*>(f))
            t->setText(text);
        else if (auto* a = qobject_cast<ZFormAddress*>(f))
            a->setText(text);
        else if (auto* d = qobject_cast<ZFormDuration*>(f))
            d->setText(text);
    }
    QString text(const QString& label) const {
        ZFormField* f = field(label);
        if (auto* c = qobject_cast<ZFormCombo*>(f))
            return c->text();
        if (auto* n = qobject_cast<ZFormNumber*>(f))
            return n->text();
        if (auto* k = qobject_cast<ZFormKnob*>(f))
            return k->number()->text();
        if (auto* t = qobject_cast<ZFormText*>(f))
            return t->text();
        if (auto* a = qobject_cast<ZFormAddress*>(f))
            return a->text();
        if (auto* d = qobject_cast<ZFormDuration*>(f))
            return d->text();
        return "?";
    }
    void save() { config->getButton("Save")->click(); }

    TavroSim::SimUnit unit;
    TavroSim::SimTcpServer server;
    Control control;
    std::unique_ptr<WConfig> config;
    bool ok;
};

const QStringList titles = {"Measurement Config",       "Measurement File Save Config",
                            "Tavro-40x General Config", "Tavro-40x AWG Config",
                            "Tavro-40x Alarms",         "Tavro-40x MQTT",
                            "Tavro-40x Network Config", "Tavro-40x Wifi Config"};

} // namespace

class WConfigTest : public QObject {
    Q_OBJECT
private slots:
    void init() {
        QSettings settings("Korvel", "Tavro-gui");
        settings.clear();
    }
    void formFields();
    void durations_data();
    void durations();
    void disconnected();
    void readsUnit();
    void saveChangesOnlyEdited();
    void invalidRefusedAndCancel();
    void presets();
    void wifiSearchAndSet();
    void fileSave();
    void generalCommands();
};

void WConfigTest::formFields() {
    struct Parse {
        const char* text;
        double min, max;
        int decimals;
        const char* error; // empty: value is taken
        double value;
    };
    const Parse parses[] = {
        {"12", 0, 255, 0, "", 12},
        {" 255 ", 0, 255, 0, "", 255},
        {"256", 0, 255, 0, "Must be from 0 to 255", 0},
        {"-1", 0, 255, 0, "Must be from 0 to 255", 0},
        {"1.5", 0, 255, 0, "\"1.5\" is not a whole number", 0},
        {"abc", 0, 255, 0, "\"abc\" is not a number", 0},
        {"1,000", 0, 1e6, 0, "\"1,000\" is not a number", 0},
        {"nan", 0, 1, 3, "\"nan\" is not a number", 0},
        {"inf", 0, 1, 3, "\"inf\" is not a number", 0},
        {"", 0, 1, 3, "A number is needed", 0},
        {"0.125", 0, 1, 3, "", 0.125},
        {"0.1235", 0, 1, 3, "At most 3 decimal places", 0},
        {"-10.5", -10, 10, 3, "Must be from -10.0 to 10.0", 0},
    };
    for (const Parse& p : parses) {
        double v = 0;
        QCOMPARE(ZFormNumber::parse(p.text, p.min, p.max, p.decimals, v), QString(p.error));
        QCOMPARE(v, p.value);
    }
    QCOMPARE(ZFormNumber::format(100, 3), QString("100.0"));
    QCOMPARE(ZFormNumber::format(0.5, 3), QString("0.5"));
    QCOMPARE(ZFormNumber::format(0.1f, 6), QString("0.1"));
    QCOMPARE(ZFormNumber::format(-2.25, 3), QString("-2.25"));
    QCOMPARE(ZFormNumber::format(4294967295.0, 0), QString("4294967295"));
    QCOMPARE(ZFormNumber::format(std::nan(""), 3), QString("nan"));

    // The mark at the field follows the input; a reload clears it.
    ZFormNumber n(0, 255, 0);
    n.setValue(7);
    QVERIFY(!n.isModified());
    n.setText("300");
    QCOMPARE(n.shownError(), QString("Must be from 0 to 255"));
    QCOMPARE(n.lineEdit()->toolTip(), QString("Must be from 0 to 255"));
    QVERIFY(n.isModified());
    n.setValue(8);
    QCOMPARE(n.shownError(), QString());
    QCOMPARE(n.lineEdit()->toolTip(), QString("0 to 255"));

    ZFormAddress a;
    uint32_t address = 0;
    for (const char* bad : {"300.1.1.1", "10.0.0.256", "1.2.3", "1.2.3.4.5", "a.b.c.d", ""}) {
        a.setText(bad);
        QCOMPARE(a.error(),
                 QString("Invalid network address (four numbers 0-255 separated by '.'): ") + bad);
        QVERIFY(!a.value(address));
    }
    a.setText("192.168.1.10");
    QVERIFY(a.value(address));
    QCOMPARE(address, 0xC0A8010Au);
    a.setValue(0x0A000001);
    QCOMPARE(a.text(), QString("10.0.0.1"));

    // A 16-byte record takes 15 bytes and its zero, UTF-8 counted in bytes.
    ZFormText t(16);
    const QString e = QString::fromUtf8("\xc3\xa9");
    const struct {
        QString text;
        bool ok;
    } texts[] = {{QString(15, 'a'), true},
                 {QString(16, 'a'), false},
                 {e.repeated(7), true},
                 {e.repeated(8), false}};
    for (const auto& x : texts) {
        t.setText(x.text);
        QCOMPARE(t.error(), x.ok ? QString() : QString("At most 15 characters"));
    }

    // A value past the list is kept in an entry of its own.
    ZFormCombo c("Off,DHCP,Manual");
    c.setValue(5);
    QCOMPARE(c.text(), QString("5"));
    QCOMPARE(c.value(), 5u);
    QVERIFY(!c.isModified());
    c.comboBox()->setCurrentIndex(2);
    QCOMPARE(c.value(), 2u);
    QVERIFY(c.isModified());
    c.setValue(1);
    QCOMPARE(c.comboBox()->count(), 3);

    ZFormKnob k(0, 1000, 3);
    k.setValue(100);
    QCOMPARE(k.number()->text(), QString("100.0"));
    QCOMPARE(k.knob()->value(), 100.0);
    k.knob()->setValue(250.25);
    QCOMPARE(k.number()->text(), QString("250.25"));
    QVERIFY(k.isModified());
    k.number()->setText("42");
    QCOMPARE(k.knob()->value(), 42.0);
    k.number()->setText("1001");
    QCOMPARE(k.error(), QString("Must be from 0.0 to 1000.0"));
    QCOMPARE(k.knob()->value(), 42.0);
}

void WConfigTest::durations_data() {
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("unit");
    QTest::addColumn<double>("rate");
    QTest::addColumn<QString>("error");
    QTest::addColumn<uint>("samples");
    using D = ZFormDuration;
    auto row = [](const char* name, double v, int unit, double rate, const char* err, uint n) {
        QTest::newRow(name) << v << unit << rate << QString(err) << n;
    };
    row("samples", 1000, D::Samples, 0, "", 1000);
    row("samples max", 4294967295.0, D::Samples, 0, "", 4294967295u);
    row("samples past max", 4294967296.0, D::Samples, 0, "Longer than 4294967295 samples", 0);
    row("samples part", 1.5, D::Samples, 4000, "A number of samples must be whole", 0);
    row("micro seconds", 250000, D::MicroSeconds, 4000, "", 1000);
    row("seconds", 0.25, D::Seconds, 4000, "", 1000);
    row("minutes", 2, D::Minutes, 100, "", 12000);
    row("hours", 1, D::Hours, 10, "", 36000);
    row("hours too long", 2, D::Hours, 1e6, "Longer than 4294967295 samples", 0);
    row("Hz", 50, D::Hz, 10000, "", 200);
    row("Hz rounds", 3, D::Hz, 10, "", 3);
    row("kHz", 2, D::KHz, 100000, "", 50);
    row("Hz zero", 0, D::Hz, 10000, "A frequency must be above 0", 0);
    row("shorter than a sample", 1, D::MicroSeconds, 4000, "Shorter than one sample", 0);
    row("zero seconds", 0, D::Seconds, 4000, "", 0);
    row("negative", -1, D::Seconds, 4000, "Must not be negative", 0);
    row("no rate", 1, D::Seconds, 0, "Needs a sample rate above 0", 0);
}

void WConfigTest::durations() {
    QFETCH(double, value);
    QFETCH(int, unit);
    QFETCH(double, rate);
    QFETCH(QString, error);
    QFETCH(uint, samples);
    uint32_t n = 0;
    QCOMPARE(ZFormDuration::toSamples(value, ZFormDuration::Unit(unit), rate, n), error);
    QCOMPARE(n, samples);

    // In a field: a change of unit keeps the duration.
    ZFormDuration d;
    d.setSampleRate(4000);
    d.setSamples(1000);
    d.setUnit(ZFormDuration::Seconds);
    QCOMPARE(d.text(), QString("0.25"));
    d.setUnit(ZFormDuration::Hz);
    QCOMPARE(d.text(), QString("4"));
    QVERIFY(d.isModified());
    QVERIFY(d.samples(n));
    QCOMPARE(n, 1000u);
}

// Without a unit: defaults, the page list, nothing sent, the measurement
// kept for the next capture.
void WConfigTest::disconnected() {
    Rig r;
    QVERIFY(r.ok);
    r.make();
    GuiMessagesDouble messages;
    QStringList list;
    for (int i = 0; i < r.config->pageCount(); i++)
        list << r.config->pageTitle(i);
    QCOMPARE(list, titles);
    QCOMPARE(r.config->addPage("Tavro-40x Firmware", new QWidget), 8);
    r.config->showConfigItem(8);
    QCOMPARE(r.config->getStack()->currentIndex(), 8);
    r.config->showConfigItem(9);
    QCOMPARE(r.config->getStack()->currentIndex(), 8);
    r.config->showConfigItem(0);
    r.config->firmwareUpdate(true);
    QCOMPARE(r.config->getList()->currentRow(), 8);

    for (auto x :
         {std::make_pair("Frequency", "100.0"), std::make_pair("Amplitude", "5.0"),
          std::make_pair("Offset", "0.0"), std::make_pair("Duty", "0.5"),
          std::make_pair("Sample Rate (Hz)", "4000.0"), std::make_pair("Capture Duration", "1000"),
          std::make_pair("Measure Mode", "One Shot"), std::make_pair("Network Address", "0.0.0.0")})
        QCOMPARE(r.text(x.first), QString(x.second));

    r.edit("Unit Name", "Nowhere");
    r.edit("Capture Duration", "2000");
    r.save();
    QCOMPARE(messages.texts(),
             QStringList{
                 "Tavro-gui - Warning: No unit is connected: the unit configuration was not sent"});
    QCOMPARE(r.control.measurementConfig().numSamples0, 2000u);
    QCOMPARE(r.text("Unit Name"), QString("Nowhere"));
    r.config->getButton("Cancel")->click();
    QCOMPARE(r.text("Unit Name"), QString());
}

void WConfigTest::readsUnit() {
    Rig r;
    QVERIFY(r.ok && r.connect());
    for (auto x :
         {std::make_pair("Unit Name", "Bench 1"), std::make_pair("Network Address", "192.168.1.10"),
          std::make_pair("MQTT Server Port", "1883"), std::make_pair("Alarm0 Level Low", "0.1"),
          std::make_pair("Frequency", "50.0"), std::make_pair("Amplitude", "1.235"),
          std::make_pair("Trigger Level", "0.333333"), std::make_pair("Capture Duration", "1000")})
        QCOMPARE(r.text(x.first), QString(x.second));
}

// Each edit changes exactly its member on the unit, to the last bit of the
// floats around it.
void WConfigTest::saveChangesOnlyEdited() {
    Rig r;
    QVERIFY(r.ok && r.connect());
    GuiMessagesDouble messages;
    struct Case {
        const char* label;
        const char* text;
        std::function<void(Snap&)> change;
    };
    const Case cases[] = {
        {"Unit Name", "Bench 7", [](Snap& s) { setCharArray(s.c.name, "Bench 7"); }},
        {"Unit Location", "LLLLLLLLLLLLLLL",
         [](Snap& s) { setCharArray(s.c.location, "LLLLLLLLLLLLLLL"); }},
        {"Digital Mode", "SyncSlave", [](Snap& s) { s.c.digitalMode = DigitalMode::SyncSlave; }},
        {"Network Address", "10.1.2.3", [](Snap& s) { s.c.networkAddress = 0x0A010203; }},
        {"Network Time Server", "255.255.255.255",
         [](Snap& s) { s.c.networkTimeServer = 0xFFFFFFFF; }},
        {"MQTT Server Port", "65535", [](Snap& s) { s.c.mqttPort = 65535; }},
        {"MQTT Mode", "On Data", [](Snap& s) { s.c.mqttMode = EventMode::Second; }},
        {"Alarm3 Level High", "2.5", [](Snap& s) { s.c.alarms[3].levelHigh = 2.5f; }},
        {"Alarm15 Mode", "Range", [](Snap& s) { s.c.alarms[15].mode = AlarmMode::Range; }},
        {"Alarm7 Output Mode", "Relay Off",
         [](Snap& s) { s.c.alarms[7].output = AlarmOutput::RelayOff; }},
        {"Alarm0 Output Channel", "15", [](Snap& s) { s.c.alarms[0].outputChannel = 15; }},
        {"Frequency", "250.5", [](Snap& s) { s.a.frequency = 250.5f; }},
        {"Mode", "TrackMean", [](Snap& s) { s.a.mode = AwgMode::TrackMean; }},
        {"Output", "AO 0&1", [](Snap& s) { s.a.output = AwgOutput::AO01; }},
        {"Sample Rate (Hz)", "20000.0", [](Snap& s) { s.m.sampleRate = 20000; }},
        {"Trigger Mode", "Negitive", [](Snap& s) { s.m.triggerMode = TriggerMode::Negative; }},
        {"Measure Mode", "Continuous", [](Snap& s) { s.m.measureMode = MeasureMode::Continuous; }},
        {"Repeat Period", "8000", [](Snap& s) { s.m.measurePeriod = 8000; }},
        {"Chunk Duration", "13", [](Snap& s) { s.m.numSamples2 = 13; }},
        {"Description", "run 4", [](Snap& s) { setCharArray(s.m.description, "run 4"); }},
    };
    for (const Case& c : cases) {
        Snap expected = r.snap();
        c.change(expected);
        r.edit(c.label, c.text);
        r.save();
        QVERIFY2(r.snap() == expected, c.label);
        QCOMPARE(r.text(c.label), QString(c.text));
        QVERIFY2(!r.field(c.label)->isModified(), c.label);
    }
    QCOMPARE(messages.texts(), QStringList());
    QCOMPARE(r.control.configuration().mqttPort, 65535u);

    // A duration in seconds follows the rate; processing sets its bit.
    Snap expected = r.snap();
    expected.m.numSamples0 = 10000;
    expected.m.numSamples1 = 2000;
    expected.m.measureOptions |= uint8_t(MeasureOption::Process);
    auto* capture = qobject_cast<ZFormDuration*>(r.field("Capture Duration"));
    capture->setUnit(ZFormDuration::Seconds);
    r.edit("Capture Duration", "0.5");
    r.config->getMeasurementPage()->processEnable()->setChecked(true);
    r.edit("Data Process Duration", "2000");
    r.save();
    QVERIFY(r.snap() == expected);
}

void WConfigTest::invalidRefusedAndCancel() {
    Rig r;
    QVERIFY(r.ok && r.connect());
    GuiMessagesDouble messages;
    const Snap before = r.snap();
    struct Case {
        const char* page;
        const char* label;
        QString text;
        const char* error;
    };
    const Case cases[] = {
        {"Tavro-40x Network Config", "Network Address", "300.1.1.1",
         "Invalid network address (four numbers 0-255 separated by '.'): 300.1.1.1"},
        {"Tavro-40x General Config", "Unit Name", QString(16, 'n'), "At most 15 characters"},
        {"Tavro-40x MQTT", "MQTT Server Port", "12a", "\"12a\" is not a number"},
        {"Tavro-40x MQTT", "MQTT Server Port", "65536", "Must be from 0 to 65535"},
        {"Tavro-40x Alarms", "Alarm2 Level Low", "", "A number is needed"},
        {"Tavro-40x AWG Config", "Duty", "1.5", "Must be from 0.0 to 1.0"},
        {"Measurement Config", "Capture Duration", "1.5", "A number of samples must be whole"},
        {"Measurement Config", "Sample Rate (Hz)", "0", "Must be from 0.001 to 1000000.0"},
    };
    for (const Case& c : cases) {
        messages.clear();
        r.config->showConfigItem(0);
        r.edit("Digital Mode", "Output"); // a valid edit that must not go either
        r.edit(c.label, c.text);
        QCOMPARE(r.field(c.label)->shownError(), QString(c.error));
        r.save();
        QCOMPARE(messages.texts(),
                 QStringList{QString("Tavro-gui - Warning: Cannot save: \"%1\" (%2): %3")
                                 .arg(c.label, c.page, c.error)});
        QCOMPARE(r.config->pageTitle(r.config->currentIndex()), QString(c.page));
        QVERIFY2(r.snap() == before, c.label);
        r.config->getButton("Cancel")->click();
        QCOMPARE(r.field(c.label)->shownError(), QString());
        QVERIFY(!r.field(c.label)->isModified() && !r.field("Digital Mode")->isModified());
    }
    QCOMPARE(r.text("Network Address"), QString("192.168.1.10"));
    // After Cancel nothing is left to send.
    messages.clear();
    r.save();
    QVERIFY(r.snap() == before);
    QCOMPARE(messages.texts(), QStringList());
}

void WConfigTest::presets() {
    Rig r;
    QVERIFY(r.ok && r.connect());
    GuiMessagesDouble messages;
    struct Case {
        const char* button;
        MeasureMode mode;
        double rate;
        bool process;
        uint32_t samples0, samples1;
    };
    const Case cases[] = {
        {"Set processed data mode", MeasureMode::OneShot, 10000, true, 100000, 1000},
        {"Set fast raw data mode", MeasureMode::Continuous, 100000, false, 100000, 1000},
        {"Set continuous processed data mode", MeasureMode::Continuous, 10000, true, 100000, 10000},
    };
    WConfigMeasurement* page = r.config->getMeasurementPage();
    for (const Case& c : cases) {
        page->button(c.button)->click();
        r.save();
        MeasurementConfig m = r.unit.measurementConfig();
        QCOMPARE(m.measureMode, c.mode);
        QCOMPARE(m.sampleRate, c.rate);
        QCOMPARE(bool(m.measureOptions & uint8_t(MeasureOption::Process)), c.process);
        QCOMPARE(m.triggerMode, TriggerMode::Off);
        QCOMPARE(m.numSamples0, c.samples0);
        QCOMPARE(m.numSamples1, c.samples1);
        QVERIFY(!memcmp(&m, &r.control.measurementConfig(), sizeof(m)));
    }
    // "Read" brings back what the unit holds.
    MeasurementConfig m = r.unit.measurementConfig();
    m.sampleRate = 2000;
    QVERIFY(!r.control.setMeasurementConfig(false, m));
    page->button("Read")->click();
    QCOMPARE(r.text("Sample Rate (Hz)"), QString("2000.0"));
    QCOMPARE(r.control.measurementConfig().sampleRate, 2000.0);

    // A measurement the unit refuses is shown, kept in the field and not
    // taken for the next capture.
    r.unit.faultErrorReply(18, ZError(22, "Invalid sample rate"));
    r.edit("Sample Rate (Hz)", "3000");
    r.save();
    QCOMPARE(r.control.measurementConfig().sampleRate, 2000.0);
    QVERIFY(r.field("Sample Rate (Hz)")->isModified());

    // "Clear Alarms" reaches the unit: its refusal is shown.
    r.unit.faultErrorReply(48, ZError(13, "Access denied: login required"));
    qobject_cast<ZFormPage*>(r.config->page(4))->button("Clear Alarms")->click();
    QCOMPARE(messages.texts(), (QStringList{"Tavro-gui - Error: Invalid sample rate",
                                            "Tavro-gui - Error: Access denied: login required"}));
}

void WConfigTest::wifiSearchAndSet() {
    Rig r;
    QVERIFY(r.ok && r.connect());
    GuiMessagesDouble messages;
    WConfigWifi* page = r.config->getWifiPage();
    page->button("Search")->click();
    QListWidget* list = page->accessPoints();
    QCOMPARE(list->count(), 4);
    QStringList names;
    for (int i = 0; i < list->count(); i++) {
        names << list->item(i)->data(Qt::UserRole).toString();
        QVERIFY(list->item(i)->text().startsWith(names.last() + " ("));
    }
    QCOMPARE(names, (QStringList{"Korvel-Lab", "Workshop", "Office-5G", "Guest"}));
    page->wifiSelect(list->item(1));
    QCOMPARE(r.text("Wifi Access Point Name"), QString("Workshop"));
    QVERIFY(!r.field("Wifi Access Point Password")->isEnabled());
    r.edit("Wifi Mode", "Client");
    Snap expected = r.snap();
    expected.c.wifiMode = WifiMode::Client;
    setCharArray(expected.c.wifiAp0, "Workshop");
    page->button("Save and Set")->click();
    QVERIFY(r.snap() == expected);
    QCOMPARE(messages.texts(), QStringList());

    // A name too long for the record is refused before anything is sent.
    r.edit("Wifi Access Point Name", QString(32, 'w'));
    page->button("Save and Set")->click();
    QCOMPARE(messages.texts(),
             QStringList{"Tavro-gui - Warning: Cannot save: \"Wifi Access Point "
                         "Name\" (Tavro-40x Wifi Config): At most 31 characters"});
    QVERIFY(r.snap() == expected);
}

void WConfigTest::fileSave() {
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QSettings("Korvel", "Tavro-gui").setValue("fileProcType", "xls"); // not a type written here
    Rig r;
    QVERIFY(r.ok);
    r.make();
    GuiMessagesDouble messages;
    WConfigFileSave* page = r.config->getFileSavePage();
    QCOMPARE(r.text("Raw File name"), QString("tavro_data_%{datetime}"));
    QCOMPARE(r.text("Processed File name"), QString("tavro_dataproc_%{datetime}"));
    QCOMPARE(r.text("Processed File type"), QString("tavd"));
    QVERIFY(!r.field("Raw File name")->isEnabled());

    page->rawSave()->setChecked(true);
    r.edit("File directory", dir.path() + "/none");
    r.save();
    QCOMPARE(messages.texts(),
             QStringList{QString("Tavro-gui - Warning: Cannot save: \"File directory\" "
                                 "(Measurement File Save Config): No such folder: %1/none")
                             .arg(dir.path())});
    QCOMPARE(r.control.fileRawSave().save, false);

    messages.fileAnswers << GuiMessagesDouble::FileAnswer{dir.path(), QString()};
    page->fileBrowser();
    QCOMPARE(messages.fileAsks.size(), 1);
    QCOMPARE(messages.fileAsks[0].kind, GuiMessages::Directory);
    QCOMPARE(messages.fileAsks[0].caption, QString("File directory"));
    QCOMPARE(messages.fileAsks[0].path, dir.path() + "/none");
    QCOMPARE(r.text("File directory"), dir.path());
    page->fileBrowser(); // cancelled
    QCOMPARE(r.text("File directory"), dir.path());
    r.edit("Raw File type", "csv_with_header");
    r.edit("Raw File name", "a/b");
    QCOMPARE(r.field("Raw File name")->error(), QString("A file name must not hold \"/\""));
    r.edit("Raw File name", "run_%{datetime}");
    messages.clear();
    r.save();
    QCOMPARE(messages.texts(), QStringList());
    FileSave raw = r.control.fileRawSave();
    QVERIFY(raw.save);
    QCOMPARE(QString(raw.dir.str()), dir.path());
    QCOMPARE(QString(raw.name.str()), QString("run_%{datetime}"));
    QCOMPARE(QString(raw.type.str()), QString("csv_with_header"));
    QCOMPARE(QString(r.control.fileProcSave().dir.str()), dir.path());
    QSettings settings("Korvel", "Tavro-gui");
    QCOMPARE(settings.value("fileRawSave").toBool(), true);
    QCOMPARE(settings.value("fileRawName").toString(), QString("run_%{datetime}"));
    QCOMPARE(settings.value("fileRawType").toString(), QString("csv_with_header"));
    QCOMPARE(settings.value("fileDir").toString(), dir.path());
    QCOMPARE(settings.value("fileProcType").toString(), QString("tavd"));
}

void WConfigTest::generalCommands() {
    Rig r;
    QVERIFY(r.ok && r.connect());
    GuiMessagesDouble messages;
    ZFormPage* page = qobject_cast<ZFormPage*>(r.config->page(2));
    unsigned int links = r.unit.links();
    messages.answers << QMessageBox::No << QMessageBox::No << QMessageBox::No;
    for (const char* b : {"Reboot", "Factory Reset", "Calibrate DC"})
        page->button(b)->click();
    QCOMPARE(messages.texts(),
             (QStringList{"Question: Are you sure you want to reboot the unit?",
                          "Question: Are you sure you want to reset the unit to its factory "
                          "configuration (Unit will reboot after this)?",
                          "Question: Connect every analogue input to 0 V. Calibrate the DC "
                          "offsets of all analogue channels now?"}));
    QVERIFY(r.control.unitsConnected() && !r.unit.rebooting());
    QCOMPARE(r.unit.links(), links);

    // Calibrate DC, answered yes: the channels' offsets come back measured.
    messages.clear();
    messages.answers << QMessageBox::Yes;
    page->button("Calibrate DC")->click();
    QCOMPARE(messages.messages.size(), 1);
    QVERIFY(r.control.channelConfigs().size() > 0);
    QCOMPARE(r.control.channelConfigs()[0].calibOffset, r.unit.channelConfig(0).calibOffset);
    QVERIFY(r.unit.channelConfig(0).calibOffset != 0.0);

    page->button("Set Time")->click();
    page->button("Start Autonomous")->click();
    QCOMPARE(messages.messages.size(), 1);
    QCOMPARE(r.unit.configuration().mode, Mode::Run);
    QCOMPARE(r.unit.mode(), Mode::Run);
    QCOMPARE(r.text("Autonomous Mode"), QString("Run"));
    QVERIFY(!r.control.setMode(Mode::Idle));
}

QTEST_MAIN(WConfigTest)
#include "wconfig_qtest.moc"
