// The form fields, then the configuration pages, the channel table, the
// configuration file page and the firmware page against a simulated unit.

#include "guimessagesdouble.h"
#include "simgui.h"
#include "tavro.h"
#include "wconfig.h"
#include "wconfigchans.h"
#include "wconfigfilesave.h"
#include "wconfigfirmware.h"
#include "wconfigmeasurement.h"
#include "wconfigsaverestore.h"
#include "wconfigwifi.h"
#include "zfirmbuild.h"
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
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <qwt_knob.h>

#include <cmath>
#include <cstring>
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

// The configuration pages on a unit manager.
struct Rig : SimControl {
    ~Rig() { config.reset(); }
    // Connects, with odd values in the records that a page must not touch.
    bool start() {
        Configuration c = unit.configuration();
        setCharArray(c.name, "Bench 1");
        c.networkAddress = 0xC0A8010A;
        c.alarms[0].levelLow = 0.1f + 1e-7f;
        c.mqttPort = 1883;
        if (unit.setConfiguration(c) || !connect())
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
        if (auto* e = f->findChild<QLineEdit*>())
            e->setText(text);
        else
            f->findChild<QComboBox*>()->setCurrentText(text);
    }
    QString text(const QString& label) const {
        ZFormField* f = field(label);
        auto* e = f->findChild<QLineEdit*>();
        return e ? e->text() : f->findChild<QComboBox*>()->currentText();
    }
    void save() { config->getButton("Save")->click(); }
    std::unique_ptr<WConfig> config;
};

const QString loginFirst =
    "Tavro-gui - Warning: Access denied. You need to be logged in to upload new firmware.";

} // namespace

class WConfigTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(tavro); }
    void init() {
        clearSettings();
        messages.clear();
    }
    // A test takes every message it expects.
    void cleanup() { QCOMPARE(messages.texts(), QStringList()); }
    void formFields();
    void disconnected();
    void saveChangesOnlyEdited();
    void invalidRefusedAndCancel();
    void presets();
    void wifiSearchAndSet();
    void fileSave();
    void generalCommands();
    void channels();
    void saveAndRestore();
    void firmwareUpload();

private:
    GuiMessagesDouble messages;
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
        {" 255 ", 0, 255, 0, "", 255},
        {"-1", 0, 255, 0, "Must be from 0 to 255", 0},
        {"1.5", 0, 255, 0, "\"1.5\" is not a whole number", 0},
        {"1,000", 0, 1e6, 0, "\"1,000\" is not a number", 0},
        {"nan", 0, 1, 3, "\"nan\" is not a number", 0},
        {"inf", 0, 1, 3, "\"inf\" is not a number", 0},
        {"0.125", 0, 1, 3, "", 0.125},
        {"0.1235", 0, 1, 3, "At most 3 decimal places", 0},
        {"-10.5", -10, 10, 3, "Must be from -10.0 to 10.0", 0},
    };
    for (const Parse& p : parses) {
        double v = 0;
        QCOMPARE(ZFormNumber::parse(p.text, p.min, p.max, p.decimals, v), QString(p.error));
        QCOMPARE(v, p.value);
    }
    QCOMPARE(ZFormNumber::format(-2.25, 3), QString("-2.25"));
    QCOMPARE(ZFormNumber::format(4294967295.0, 0), QString("4294967295"));
    QCOMPARE(ZFormNumber::format(std::nan(""), 3), QString("nan"));
    // The tip at the field follows the input; a reload clears it.
    ZFormNumber n(0, 255, 0);
    n.setText("300");
    QCOMPARE(n.lineEdit()->toolTip(), QString("Must be from 0 to 255"));
    n.setValue(8);
    QCOMPARE(n.lineEdit()->toolTip(), QString("0 to 255"));
    ZFormAddress a;
    uint32_t address = 0;
    for (const char* bad : {"300.1.1.1", "10.0.0.256", "1.2.3", "1.2.3.4.5", "a.b.c.d", ""}) {
        a.setText(bad);
        QCOMPARE(a.error(),
                 QString("Invalid network address (four numbers 0-255 separated by '.'): ") + bad);
        QVERIFY(!a.value(address));
    }
    // A 16-byte record takes 15 bytes and its zero, UTF-8 counted in bytes.
    ZFormText t(16);
    t.setText(QString::fromUtf8("\xc3\xa9").repeated(7));
    QCOMPARE(t.error(), QString());
    t.setText(QString::fromUtf8("\xc3\xa9").repeated(8));
    QCOMPARE(t.error(), QString("At most 15 characters"));
    // A value past the list is kept in an entry of its own.
    ZFormCombo c("Off,DHCP,Manual");
    c.setValue(5);
    QCOMPARE(c.text(), QString("5"));
    QCOMPARE(c.value(), 5u);
    c.setValue(1);
    QCOMPARE(c.comboBox()->count(), 3);
    ZFormKnob k(0, 1000, 3);
    k.setValue(100);
    QCOMPARE(k.knob()->value(), 100.0);
    k.knob()->setValue(250.25);
    QCOMPARE(k.number()->text(), QString("250.25"));
    QVERIFY(k.isModified());
    k.number()->setText("42");
    QCOMPARE(k.knob()->value(), 42.0);
    k.number()->setText("1001");
    QCOMPARE(k.error(), QString("Must be from 0.0 to 1000.0"));
    QCOMPARE(k.knob()->value(), 42.0);
    // A change of unit keeps the duration.
    ZFormDuration d;
    d.setSampleRate(4000);
    d.setSamples(1000);
    d.setUnit(ZFormDuration::Seconds);
    QCOMPARE(d.text(), QString("0.25"));
    d.setUnit(ZFormDuration::Hz);
    QCOMPARE(d.text(), QString("4"));
    QVERIFY(d.isModified());
    uint32_t samples = 0;
    QVERIFY(d.samples(samples));
    QCOMPARE(samples, 1000u);
    // Durations to samples.
    using D = ZFormDuration;
    const struct {
        double value;
        D::Unit unit;
        double rate;
        const char* error;
        uint32_t samples;
    } rows[] = {
        {1000, D::Samples, 0, "", 1000},
        {4294967295.0, D::Samples, 0, "", 4294967295u},
        {4294967296.0, D::Samples, 0, "Longer than 4294967295 samples", 0},
        {1.5, D::Samples, 4000, "A number of samples must be whole", 0},
        {250000, D::MicroSeconds, 4000, "", 1000},
        {0.25, D::Seconds, 4000, "", 1000},
        {2, D::Minutes, 100, "", 12000},
        {1, D::Hours, 10, "", 36000},
        {2, D::Hours, 1e6, "Longer than 4294967295 samples", 0},
        {50, D::Hz, 10000, "", 200},
        {3, D::Hz, 10, "", 3}, // rounded
        {2, D::KHz, 100000, "", 50},
        {0, D::Hz, 10000, "A frequency must be above 0", 0},
        {1, D::MicroSeconds, 4000, "Shorter than one sample", 0},
        {0, D::Seconds, 4000, "", 0},
        {-1, D::Seconds, 4000, "Must not be negative", 0},
        {1, D::Seconds, 0, "Needs a sample rate above 0", 0},
    };
    for (const auto& r : rows) {
        uint32_t got = 0;
        const QString row = QString("%1 %2 %3: ").arg(r.value).arg(int(r.unit)).arg(r.rate);
        const QString error = D::toSamples(r.value, r.unit, r.rate, got);
        QCOMPARE(row + error + " " + QString::number(got),
                 row + r.error + " " + QString::number(r.samples));
    }
}

// Without a unit: defaults, the page list, nothing sent, the measurement
// kept for the next capture.
void WConfigTest::disconnected() {
    Rig r;
    QVERIFY(r.ok);
    r.make();
    QStringList list;
    for (int i = 0; i < r.config->pageCount(); i++)
        list << r.config->pageTitle(i);
    QCOMPARE(list,
             QStringList({"Measurement Config", "Measurement File Save Config",
                          "Tavro-40x General Config", "Tavro-40x AWG Config", "Tavro-40x Alarms",
                          "Tavro-40x MQTT", "Tavro-40x Network Config", "Tavro-40x Wifi Config"}));
    QCOMPARE(r.config->addPage("Tavro-40x Firmware", new QWidget), 8);
    r.config->showConfigItem(8);
    QCOMPARE(r.config->getStack()->currentIndex(), 8);
    r.config->showConfigItem(9);
    QCOMPARE(r.config->getStack()->currentIndex(), 8);
    r.config->showConfigItem(0);
    // Only a page taller than the window scrolls: the 16 alarms, not the
    // measurement set-up, in a window of a height between the two.
    QScrollArea* scroll = r.config->findChild<QScrollArea*>();
    r.config->show();
    QVERIFY(QTest::qWaitForWindowExposed(r.config.get()));
    const int overhead = r.config->height() - scroll->viewport()->height();
    const int measure = r.config->getStack()->widget(0)->minimumSizeHint().height();
    const int alarms = r.config->getStack()->widget(4)->minimumSizeHint().height();
    QVERIFY(measure + 40 < alarms);
    r.config->resize(1100, overhead + (measure + alarms) / 2);
    QCoreApplication::processEvents();
    QVERIFY(!scroll->verticalScrollBar()->isVisible());
    r.config->showConfigItem(4);
    QTRY_VERIFY(scroll->verticalScrollBar()->isVisible());
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
    QCOMPARE(messages.take(),
             QStringList{
                 "Tavro-gui - Warning: No unit is connected: the unit configuration was not sent"});
    QCOMPARE(r.control.measurementConfig().numSamples0, 2000u);
    QCOMPARE(r.text("Unit Name"), QString("Nowhere"));
    r.config->getButton("Cancel")->click();
    QCOMPARE(r.text("Unit Name"), QString());
}

// The records as read; then each edit changes exactly its member on the
// unit, to the last bit of the floats around it.
void WConfigTest::saveChangesOnlyEdited() {
    Rig r;
    QVERIFY(r.ok && r.start());
    for (auto x :
         {std::make_pair("Unit Name", "Bench 1"), std::make_pair("Network Address", "192.168.1.10"),
          std::make_pair("MQTT Server Port", "1883"), std::make_pair("Alarm0 Level Low", "0.1"),
          std::make_pair("Frequency", "50.0"), std::make_pair("Amplitude", "1.235"),
          std::make_pair("Trigger Level", "0.333333"), std::make_pair("Capture Duration", "1000")})
        QCOMPARE(r.text(x.first), QString(x.second));
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
    QVERIFY(r.ok && r.start());
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
        r.config->showConfigItem(0);
        r.edit("Digital Mode", "Output"); // a valid edit that must not go either
        r.edit(c.label, c.text);
        QCOMPARE(r.field(c.label)->shownError(), QString(c.error));
        r.save();
        QCOMPARE(messages.take(),
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
    r.save();
    QVERIFY(r.snap() == before);
}

void WConfigTest::presets() {
    Rig r;
    QVERIFY(r.ok && r.start());
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
    QCOMPARE(messages.take(), (QStringList{"Tavro-gui - Error: Invalid sample rate",
                                           "Tavro-gui - Error: Access denied: login required"}));
}

void WConfigTest::wifiSearchAndSet() {
    Rig r;
    QVERIFY(r.ok && r.start());
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
    // A name too long for the record is refused before anything is sent.
    r.edit("Wifi Access Point Name", QString(32, 'w'));
    page->button("Save and Set")->click();
    QCOMPARE(messages.take(), QStringList{"Tavro-gui - Warning: Cannot save: \"Wifi Access Point "
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
    WConfigFileSave* page = r.config->getFileSavePage();
    QCOMPARE(r.text("Raw File name"), QString("tavro_data_%{datetime}"));
    QCOMPARE(r.text("Processed File name"), QString("tavro_dataproc_%{datetime}"));
    QCOMPARE(r.text("Processed File type"), QString("tavd"));
    QVERIFY(!r.field("Raw File name")->isEnabled());
    page->rawSave()->setChecked(true);
    r.edit("File directory", dir.path() + "/none");
    r.save();
    QCOMPARE(messages.take(),
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
    r.save();
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
    QVERIFY(r.ok && r.start());
    ZFormPage* page = qobject_cast<ZFormPage*>(r.config->page(2));
    unsigned int links = r.unit.links();
    messages.answers << QMessageBox::No << QMessageBox::No << QMessageBox::No;
    for (const char* b : {"Reboot", "Factory Reset", "Calibrate DC"})
        page->button(b)->click();
    QCOMPARE(messages.take(),
             (QStringList{"Question: Are you sure you want to reboot the unit?",
                          "Question: Are you sure you want to reset the unit to its factory "
                          "configuration (Unit will reboot after this)?",
                          "Question: Connect every analogue input to 0 V. Calibrate the DC "
                          "offsets of all analogue channels now?"}));
    QVERIFY(r.control.unitsConnected() && !r.unit.rebooting());
    QCOMPARE(r.unit.links(), links);
    // Calibrate DC, answered yes: the channels' offsets come back measured.
    messages.answers << QMessageBox::Yes;
    page->button("Calibrate DC")->click();
    QCOMPARE(messages.take().size(), 1);
    QVERIFY(r.control.channelConfigs().size() > 0);
    QCOMPARE(r.control.channelConfigs()[0].calibOffset, r.unit.channelConfig(0).calibOffset);
    QVERIFY(r.unit.channelConfig(0).calibOffset != 0.0);
    page->button("Set Time")->click();
    page->button("Start Autonomous")->click();
    QCOMPARE(r.unit.configuration().mode, Mode::Run);
    QCOMPARE(r.unit.mode(), Mode::Run);
    QCOMPARE(r.text("Autonomous Mode"), QString("Run"));
    QVERIFY(!r.control.setMode(Mode::Idle));
}

// The channel table: what a row shows, what Save sends (gain, numbers, cut
// names), Cancel, and the refusal during a capture.
void WConfigTest::channels() {
    SimControl sim;
    ChannelConfig c2 = sim.unit.channelConfig(2);
    c2.pgaGain = 3.0;
    setCharArray(c2.process, "Rms");
    QVERIFY(sim.ok && sim.connect() && !sim.control.setChannelConfig(2, c2) &&
            !sim.control.update());
    WConfigChans page(sim.control);
    QTableWidget* t = page.getTable();
    QCOMPARE(t->rowCount(), sim.control.channelConfigs().size());
    auto combo = [&](int row, int column) {
        return qobject_cast<QComboBox*>(t->cellWidget(row, column))->currentText();
    };
    QCOMPARE(combo(2, WConfigChans::ColPgaGain), QString("1"));
    QCOMPARE(combo(2, WConfigChans::ColProcess), QString("Rms"));
    QCOMPARE(t->item(2, WConfigChans::ColType)->text(), QString("Analogue In"));
    QCOMPARE(t->item(2, WConfigChans::ColName)->text(), QString(getCharArray(c2.name).str()));
    QCOMPARE(t->item(2, WConfigChans::ColScale)->text(), QString("1"));
    // Cancel shows the records again.
    t->item(2, WConfigChans::ColName)->setText("edited");
    page.getCancelButton()->click();
    QCOMPARE(t->item(2, WConfigChans::ColName)->text(), QString(getCharArray(c2.name).str()));
    const ChannelConfig c0 = sim.unit.channelConfig(0);
    t->item(2, WConfigChans::ColName)->setText("ABCDEFGHIJKLMNOPQRS");
    t->item(2, WConfigChans::ColUnits)->setText("kilopascal");
    t->item(2, WConfigChans::ColScale)->setText("many");
    t->item(2, WConfigChans::ColOffset)->setText(" -1.5 ");
    qobject_cast<QCheckBox*>(t->cellWidget(2, WConfigChans::ColAttenuator))->setChecked(true);
    page.getSaveButton()->click();
    QCOMPARE(messages.texts(), QStringList());
    const ChannelConfig s = sim.unit.channelConfig(2);
    QVERIFY(s.pgaGain == 1.0 && s.scale == 0.0 && s.offset == -1.5 && s.attenuator == 1);
    QCOMPARE(getCharArray(s.name), ZString("ABCDEFGHIJKLMNOP"));
    QCOMPARE(getCharArray(s.siUnits), ZString("kilopasc"));
    QCOMPARE(getCharArray(s.process), ZString("Rms"));
    const ChannelConfig c0After = sim.unit.channelConfig(0);
    QVERIFY(memcmp(&c0, &c0After, sizeof(c0)) == 0);
    QCOMPARE(getCharArray(sim.control.channelConfigs()[2].name), ZString("ABCDEFGHIJKLMNOP"));
    // A running capture: read-only, and Save says why it does nothing.
    MeasurementConfig m = sim.control.measurementConfig();
    m.measureMode = MeasureMode::Continuous;
    sim.control.setMeasurement(m);
    QVERIFY(!sim.control.measureStart(false));
    page.update();
    QVERIFY(!page.getSaveButton()->isEnabled());
    QVERIFY(!(t->item(2, WConfigChans::ColName)->flags() & Qt::ItemIsEditable));
    QVERIFY(!t->cellWidget(2, WConfigChans::ColEnable)->isEnabled());
    page.save();
    QCOMPARE(messages.take(),
             QStringList{
                 "Tavro-gui - Warning: The channels cannot be changed while a capture is running"});
    QVERIFY(!sim.control.measureStop(1));
}

// The configuration file page: nothing without a unit, the save dialog and
// file, and restores that are refused, fail, are declined and go through.
void WConfigTest::saveAndRestore() {
    SimControl sim(simOptions([](TavroSim::SimOptions& o) { o.rebootMs = 50; }));
    QVERIFY(sim.ok);
    WConfigSaveRestore page(sim.control);
    QTemporaryDir dir;
    const QString saved = dir.filePath("unit.zconfig");
    page.getSaveButton()->click();
    page.getRestoreButton()->click();
    QVERIFY(messages.fileAsks.isEmpty());
    QVERIFY(sim.connect());
    Configuration config = sim.unit.configuration();
    setCharArray(config.name, "Saved");
    QVERIFY(!sim.unit.setConfiguration(config));
    messages.fileAnswers << GuiMessagesDouble::FileAnswer{saved, QString()};
    page.getSaveButton()->click();
    QCOMPARE(messages.fileAsks.size(), 1);
    const GuiMessagesDouble::FileAsk ask = messages.fileAsks[0];
    QCOMPARE(int(ask.kind), int(GuiMessages::SaveFile));
    QCOMPARE(ask.filter, QString("Tavro config [*.zconfig] (*.zconfig)"));
    QVERIFY2(QRegularExpression("^tavro-config_T400-000001_[0-9_-]{19}\\.zconfig$")
                 .match(ask.path)
                 .hasMatch(),
             qPrintable(ask.path));
    QFile file(saved);
    QVERIFY(file.open(QIODevice::ReadOnly) &&
            file.readAll().startsWith("[file]\ntype: zconfig\nversion: 0\n[boardConfig]\n"));
    auto write = [&](const char* name, const char* text) {
        QFile f(dir.filePath(name));
        return f.open(QIODevice::WriteOnly) && f.write(text) > 0 ? f.fileName() : QString();
    };
    const QString other = write("other.zconfig", "[file]\ntype: zconf\n[configuration]\nname: X\n");
    const QString nameOnly =
        write("name.zconfig", "[file]\ntype: zconfig\n[configuration]\nname: Only name\n");
    setCharArray(config.name, "Changed");
    QVERIFY(!sim.unit.setConfiguration(config));
    auto restore = [&](const QString& name, QMessageBox::StandardButton answer) {
        messages.clear();
        messages.answers << answer;
        messages.fileAnswers << GuiMessagesDouble::FileAnswer{name, QString()};
        page.getRestoreButton()->click();
        return messages.take();
    };
    const QString question = "Question: Are you sure you want to reload the configuration of the "
                             "unit (Unit will reboot after this)?";
    QCOMPARE(restore(other, QMessageBox::Yes), QStringList{"Error: Not a zconfig file"});
    QCOMPARE(restore(saved, QMessageBox::No), QStringList{question});
    QCOMPARE(getCharArray(sim.unit.configuration().name), ZString("Changed"));
    // Only the name is listed: the first set call changes the name alone, the
    // second fails and stops the restore before any reboot.
    const MeasurementConfig measurement = sim.unit.measurementConfig();
    sim.unit.faultErrorReply(TavroFn::setMeasurementConfig, ZError(22, "Refused"));
    QCOMPARE(restore(nameOnly, QMessageBox::Yes),
             (QStringList{question, "Error: Error setting Measurement config: Refused"}));
    Configuration now = sim.unit.configuration();
    QCOMPARE(getCharArray(now.name), ZString("Only name"));
    setCharArray(now.name, "Changed");
    QVERIFY(!memcmp(&now, &config, sizeof(now)));
    const MeasurementConfig measurementNow = sim.unit.measurementConfig();
    QVERIFY(!memcmp(&measurement, &measurementNow, sizeof(measurement)));
    QVERIFY(!sim.control.getConfig(now)); // still linked: no reboot so far
    sim.unit.faultErrorReply(0, ZError());
    QCOMPARE(restore(saved, QMessageBox::Yes), QStringList{question});
    QCOMPARE(getCharArray(sim.unit.configuration().name), ZString("Saved"));
    QTRY_VERIFY_WITH_TIMEOUT(!sim.unit.serving(), 5000); // the reboot ended the link
}

// The firmware page: the unit's versions, the package's version once picked,
// the refusal without a login, the version check and its force box, and an
// upload that the unit installs at reboot.
void WConfigTest::firmwareUpload() {
    SimGui b;
    QVERIFY(b.ok && b.connect());
    WConfigFirmware page(b.control(), &b.gui);
    page.update();
    QCOMPARE(page.value("Software Version"), QString("1.0.8"));
    QTemporaryDir tmp;
    const QString dir = tmp.path();
    const QString same = dir + "/tavro-40x-1.0.8.zfirm", next = dir + "/tavro-40x-2.7.9.zfirm";
    QVERIFY(!zfirmWriteFile(same.toUtf8().constData(), zfirmBuildPackageAll({1, 0, 8}, 2000)));
    QVERIFY(!zfirmWriteFile(next.toUtf8().constData(), zfirmBuildPackageAll({2, 7, 9}, 2000)));
    messages.fileAnswers << GuiMessagesDouble::FileAnswer{dir + "/missing.zfirm", QString()}
                         << GuiMessagesDouble::FileAnswer{next, QString()};
    page.findChild<QPushButton*>("Browse")->click();
    QCOMPARE(page.fileVersion(), QString("Invalid file"));
    page.firmwareSelect();
    QCOMPARE(page.fileVersion(), QString("2.7.9"));
    QCOMPARE(messages.fileAsks[1].caption, QString("Firmware browser"));
    QCOMPARE(messages.fileAsks[1].filter, QString("Firmware (tavro-40x-*.zfirm)"));
    QCOMPARE(messages.fileAsks[1].path, dir + "/missing.zfirm");
    QPushButton* all = page.findChild<QPushButton*>("Upload firmware");
    all->click();
    QCOMPARE(messages.take(), QStringList{loginFirst});
    login(b.gui, "admin", "tavro");
    QVERIFY(b.gui.isLoggedIn());
    // The version the unit already runs: nothing goes unless forced.
    page.firmwareSetFile(same);
    page.findChild<QPushButton*>("Upload Cpu firmware")->click();
    QCOMPARE(messages.messages.size(), 1);
    QVERIFY(messages.take()[0].startsWith("Tavro-gui: The unit already runs firmware 1.0.8."));
    page.findChild<QCheckBox*>()->setChecked(true);
    page.findChild<QPushButton*>("Upload Cpu firmware")->click();
    QCOMPARE(messages.take(),
             QStringList{"Tavro-gui: Firmware upload complete, reboot to install"});
    page.firmwareSetFile(next);
    all->click();
    QCOMPARE(messages.take(),
             QStringList{"Tavro-gui: Firmware upload complete, reboot to install"});
    b.unit.reboot();
    QTRY_VERIFY_WITH_TIMEOUT(!b.unit.rebooting(), 5000);
    QCOMPARE(page.value("Software Version"), QString("1.0.8")); // the page's copy until re-read
    const TavroApi::NodeInfo info = b.unit.nodeInfo();
    QCOMPARE(QString::asprintf("%u.%u.%u", info.softwareVersion.ver0, info.softwareVersion.ver1,
                               info.softwareVersion.ver2),
             QString("2.7.9"));
    b.gui.unitsConnect(false);
    messages.clear(); // what the window said of the reboot
    page.findChild<QPushButton*>("Upload Wifi firmware")->click();
    QCOMPARE(messages.take(), QStringList{loginFirst});
}

QTEST_MAIN(WConfigTest)
#include "wconfig_qtest.moc"
