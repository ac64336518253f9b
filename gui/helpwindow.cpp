#include "helpwindow.h"

#include <QFile>
#include <QHBoxLayout>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSplitter>
#include <QTextBrowser>
#include <QVBoxLayout>

// The pages live in a static library: registering them here keeps the
// manual whole wherever the window is built.
static void manualResourcesInit() {
    Q_INIT_RESOURCE(manual);
}

namespace {

const HelpWindow::Topic topicTable[] = {
    {"index", "Contents"},
    {"start", "Getting started"},
    {"window", "The main window"},
    {"status", "Status page"},
    {"units", "Units page"},
    {"config", "Config page"},
    {"channelconfig", "Channel Config page"},
    {"rawdata", "Raw Data page"},
    {"processed", "Processed Data page"},
    {"datalog", "Data Log page"},
    {"calibrate", "Calibrate page"},
    {"demo", "Capture Demo page"},
    {"debug", "Debug page"},
    {"files", "File formats"},
    {"firmware", "Firmware update"},
    {"cli", "The command-line tool tavroCli"},
    {"troubleshooting", "Troubleshooting"},
};

} // namespace

HelpWindow::HelpWindow(QWidget* parent) : QWidget(parent), ocontents(nullptr), obrowser(nullptr) {
    manualResourcesInit();
    init();
}

void HelpWindow::init() {
    setWindowTitle("Tavro-gui - Manual");
    resize(960, 700);

    QVBoxLayout* layout = new QVBoxLayout(this);
    QHBoxLayout* buttons = new QHBoxLayout();
    QPushButton* back = new QPushButton("Back", this);
    QPushButton* forward = new QPushButton("Forward", this);
    QPushButton* contents = new QPushButton("Contents", this);
    back->setEnabled(false);
    forward->setEnabled(false);
    buttons->addWidget(back);
    buttons->addWidget(forward);
    buttons->addWidget(contents);
    buttons->addStretch();
    layout->addLayout(buttons);

    QSplitter* splitter = new QSplitter(Qt::Horizontal, this);
    ocontents = new QListWidget(splitter);
    int number;
    const Topic* t = topics(number);
    for (int i = 0; i < number; i++) {
        QListWidgetItem* item = new QListWidgetItem(t[i].title, ocontents);
        item->setData(Qt::UserRole, QString(t[i].name));
    }
    obrowser = new QTextBrowser(splitter);
    obrowser->setOpenExternalLinks(true);
    obrowser->setSearchPaths({manualPath});
    splitter->addWidget(ocontents);
    splitter->addWidget(obrowser);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({220, 740});
    layout->addWidget(splitter, 1);

    connect(back, SIGNAL(clicked()), obrowser, SLOT(backward()));
    connect(forward, SIGNAL(clicked()), obrowser, SLOT(forward()));
    connect(obrowser, SIGNAL(backwardAvailable(bool)), back, SLOT(setEnabled(bool)));
    connect(obrowser, SIGNAL(forwardAvailable(bool)), forward, SLOT(setEnabled(bool)));
    connect(contents, SIGNAL(clicked()), this, SLOT(showContents()));
    connect(ocontents, SIGNAL(currentRowChanged(int)), this, SLOT(contentsSelected()));
    connect(obrowser, SIGNAL(sourceChanged(QUrl)), this, SLOT(sourceChanged(QUrl)));

    obrowser->setSource(topicUrl(home));
}

const HelpWindow::Topic* HelpWindow::topics(int& number) {
    number = int(sizeof(topicTable) / sizeof(topicTable[0]));
    return topicTable;
}

QUrl HelpWindow::topicUrl(const QString& topic) {
    QString name = topic.section('#', 0, 0);
    QString anchor = topic.section('#', 1);
    if (name.endsWith(".html"))
        name.chop(5);
    // Only plain page names: nothing may reach outside the manual.
    if (name.isEmpty() || name.contains('/') || name.contains(':') || name.contains(".."))
        return QUrl();
    QString file = QString(manualPath) + "/" + name + ".html";
    if (!QFile::exists(file))
        return QUrl();
    QUrl url("qrc" + file);
    if (!anchor.isEmpty())
        url.setFragment(anchor);
    return url;
}

QString HelpWindow::currentTopic() const {
    QString file = obrowser->source().fileName();
    if (file.endsWith(".html"))
        file.chop(5);
    return file;
}

bool HelpWindow::showTopic(const QString& topic) {
    QUrl url = topicUrl(topic);
    if (url.isEmpty())
        return false;
    obrowser->setSource(url);
    show();
    raise();
    activateWindow();
    return true;
}

void HelpWindow::showContents() {
    showTopic(home);
}

void HelpWindow::contentsSelected() {
    QListWidgetItem* item = ocontents->currentItem();
    if (!item)
        return;
    QString name = item->data(Qt::UserRole).toString();
    if (name != currentTopic())
        obrowser->setSource(topicUrl(name));
}

void HelpWindow::sourceChanged(const QUrl& url) {
    // The contents follow the page, however it was reached. The browser
    // tells before its source() is the new page.
    QString name = url.fileName();
    if (name.endsWith(".html"))
        name.chop(5);
    for (int i = 0; i < ocontents->count(); i++) {
        QListWidgetItem* item = ocontents->item(i);
        if (item->data(Qt::UserRole).toString() == name) {
            QSignalBlocker block(ocontents);
            ocontents->setCurrentItem(item);
            return;
        }
    }
}
