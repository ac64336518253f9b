#include "wconfigpage.h"

#include "control.h"
#include "guimessages.h"

WConfigPage::WConfigPage(Control& control, const QString& title, const QString& heading,
                         QWidget* parent)
    : ZFormPage(title, heading, parent), ocontrol(control) {}

void WConfigPage::bind(ZFormField* field, const Load& load, const Store& store) {
    obindings.append(Binding{field, load, store});
}

ZFormAddress* WConfigPage::addAddress(const QString& label,
                                      uint32_t TavroApi::Configuration::*member) {
    ZFormAddress* f = addField(label, new ZFormAddress(this));
    bind(
        f, [f, member](const TavroApi::Configuration& c) { f->setValue(c.*member); },
        [f, member](TavroApi::Configuration& c) { f->value(c.*member); });
    return f;
}

ZFormNumber* WConfigPage::addNumber(const QString& label, double min, double max,
                                    uint32_t TavroApi::Configuration::*member) {
    ZFormNumber* f = addField(label, new ZFormNumber(min, max, 0, this));
    bind(
        f, [f, member](const TavroApi::Configuration& c) { f->setValue(double(c.*member)); },
        [f, member](TavroApi::Configuration& c) { c.*member = uint32_t(f->value()); });
    return f;
}

void WConfigPage::configRead() {
    const TavroApi::Configuration& c = ocontrol.configuration();
    for (const Binding& b : obindings)
        b.load(c);
}

void WConfigPage::configChange(WConfigRecords& records) {
    for (const Binding& b : obindings) {
        if (b.field->isModified() && b.field->error().isEmpty()) {
            b.store(records.config);
            records.configChanged = true;
        }
    }
}

bool WConfigPage::showError(const ZError& err) {
    if (!err)
        return false;
    GuiMessages::critical(this, "Tavro-gui - Error", ZFormField::toQString(err.str()));
    return true;
}

void WConfigPage::refreshRecords() {
    showError(ocontrol.update());
    emit recordsChanged();
}

QString WConfigPage::invalidText(const QString& page, const QString& label, const QString& error) {
    return QString("Cannot save: \"%1\" (%2): %3").arg(label, page, error);
}

bool WConfigPage::checkFields() {
    QString label, err;
    if (!firstError(label, err))
        return true;
    GuiMessages::warning(this, "Tavro-gui - Warning", invalidText(title(), label, err));
    if (ZFormField* f = field(label))
        f->setFocus();
    return false;
}
