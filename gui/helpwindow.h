#ifndef HELPWINDOW_H
#define HELPWINDOW_H

#include <QString>
#include <QUrl>
#include <QWidget>

class QListWidget;
class QTextBrowser;

// The user manual: a window with the list of topics on the left and the
// page of the chosen topic on the right, with Back, Forward and Contents.
// The pages are HTML files compiled into the program under ":/manual"; a
// topic is named by its file without ".html" ("status"), optionally with an
// anchor ("files#csv"). Links between pages work as in a browser; links to
// web sites open in the desktop's browser.
//
// The window is a top-level window of its own (created without parent).
// GUI thread only.
class HelpWindow : public QWidget {
    Q_OBJECT
public:
    struct Topic {
        const char* name;  // "status"
        const char* title; // as the contents list shows it
    };
    static constexpr const char* manualPath = ":/manual";
    static constexpr const char* home = "index";

    HelpWindow(QWidget* parent = nullptr);

    void init();

    // The topics of the contents, in order.
    static const Topic* topics(int& number);
    // "qrc:/manual/status.html#anchor" for "status#anchor"; empty for a
    // topic with no page.
    static QUrl topicUrl(const QString& topic);

    // The widgets, for tests.
    QListWidget* getContents() const { return ocontents; }
    QTextBrowser* getBrowser() const { return obrowser; }
    // The page shown: "status" (without anchor), empty for none.
    QString currentTopic() const;

public slots:
    // Opens a topic and brings the window up. False (and the window left as
    // it was) for a topic with no page.
    bool showTopic(const QString& topic);
    void showContents();

private slots:
    void contentsSelected();
    void sourceChanged(const QUrl& url);

private:
    QListWidget* ocontents;
    QTextBrowser* obrowser;
};

#endif
