#ifndef WCONFIGPAGE_H
#define WCONFIGPAGE_H

#include "tavrorecords.h"
#include "zformaddress.h"
#include "zformcombo.h"
#include "zformnumber.h"
#include "zformpage.h"
#include "zformtext.h"

#include <functional>

class Control;

// The records that one "Save" of the configuration pages sends: each starts
// as the control object's copy, the pages write their changed fields into
// them and mark what they changed.
struct WConfigRecords {
    TavroApi::Configuration config;
    TavroApi::MeasurementConfig measurement;
    TavroApi::AwgConfig awg;
    bool configChanged = false;
    bool measurementChanged = false;
    bool awgChanged = false;
};

// A page of the device configuration (WConfig). Its fields show the control
// object's cached records (configRead) and write back into a record only
// the members whose field the user changed (configChange), so that a save
// leaves everything else exactly as the unit has it.
//
// The fields of the unit's Configuration are bound here, member by member;
// pages for other records override configRead and configChange.
class WConfigPage : public ZFormPage {
    Q_OBJECT
public:
    WConfigPage(Control& control, const QString& title, const QString& heading,
                QWidget* parent = nullptr);

    // The warning that names a field that cannot be taken.
    static QString invalidText(const QString& page, const QString& label, const QString& error);

    // Fields from the control object's records.
    virtual void configRead();
    // The changed fields into records (valid fields only).
    virtual void configChange(WConfigRecords& records);

    using Load = std::function<void(const TavroApi::Configuration&)>;
    using Store = std::function<void(TavroApi::Configuration&)>;
    // Binds a field to a member of the Configuration.
    void bind(ZFormField* field, const Load& load, const Store& store);

    template <class E>
    ZFormCombo* addCombo(const QString& label, const QString& choices,
                         E TavroApi::Configuration::*member) {
        ZFormCombo* f = addField(label, new ZFormCombo(choices, this));
        bind(
            f, [f, member](const TavroApi::Configuration& c) { f->setValue(unsigned(c.*member)); },
            [f, member](TavroApi::Configuration& c) { c.*member = E(f->value()); });
        return f;
    }
    template <size_t N>
    ZFormText* addText(const QString& label, char (TavroApi::Configuration::*member)[N]) {
        ZFormText* f = addField(label, new ZFormText(int(N), this));
        bind(
            f,
            [f, member](const TavroApi::Configuration& c) {
                f->setValue(TavroApi::getCharArray(c.*member));
            },
            [f, member](TavroApi::Configuration& c) {
                TavroApi::setCharArray(c.*member, f->value());
            });
        return f;
    }
    ZFormAddress* addAddress(const QString& label, uint32_t TavroApi::Configuration::*member);
    ZFormNumber* addNumber(const QString& label, double min, double max,
                           uint32_t TavroApi::Configuration::*member);

signals:
    // The control object's records were read again from the units.
    void recordsChanged();

protected:
    // False, after a warning box naming the first invalid field, when a
    // field cannot be taken.
    bool checkFields();
    // Shows a failed unit call in an error box; true when there was one.
    bool showError(const ZError& err);
    // Reads the control object's records again (Control::update) and tells
    // the page set.
    void refreshRecords();

    Control& ocontrol;

private:
    struct Binding {
        ZFormField* field;
        Load load;
        Store store;
    };
    QList<Binding> obindings;
};

#endif
