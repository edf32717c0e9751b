// The mailbox selection dialog.
#include "app/SelectData.h"
#include "scanner/Globals.h"
#include "ui_BrowseWindow.h"

#include <QSignalSpy>
#include <QtTest>

namespace {
// The directory chooser is replaced by a scripted answer.
class ScriptedSelectData : public SelectData {
public:
    QString answer;

protected:
    QString AskForDirectory() override { return answer; }
};
} // namespace

class TestSelectData : public QObject {
    Q_OBJECT
private slots:
    void proposesTheDefaultStore() {
        ScriptedSelectData dlg;
        const QString expected = DefaultMailPathFor(pellomar::ConsoleUserName());
        QCOMPARE(m_strInputfilepath, expected);
        QCOMPARE(dlg.ui->SelectPSTLEdit->text(), expected);
        QVERIFY(dlg.ui->StartButton->isEnabled());
        QCOMPARE(dlg.ui->label_3->geometry(), QRect(73, 165, 16, 16));
        QVERIFY(dlg.ui->StartButton->styleSheet().contains("hiegth: 50px"));
        QCOMPARE(dlg.ui->StartButton->toolTip(), QStringLiteral("Start Scanning"));
    }

    void browsing_data() {
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<QString>("expected");
        const QString def = DefaultMailPathFor(pellomar::ConsoleUserName());
        QTest::newRow("chosen folder") << QStringList{"/data/Mail"} << "/data/Mail";
        QTest::newRow("cancel gives the default") << QStringList{""} << def;
        QTest::newRow("cancel after a choice gives the default")
            << QStringList{"/data/Mail", ""} << def;
        QTest::newRow("strange name")
            << QStringList{"/tmp/it's $HOME (copy)"} << "/tmp/it's $HOME (copy)";
    }
    void browsing() {
        QFETCH(QStringList, answers);
        QFETCH(QString, expected);
        ScriptedSelectData dlg;
        for (const QString& a : answers) {
            dlg.answer = a;
            dlg.OpenFileDialog();
        }
        QCOMPARE(m_strInputfilepath, expected);
        QCOMPARE(dlg.ui->SelectPSTLEdit->text(), expected);
        QVERIFY(dlg.ui->StartButton->isEnabled());
    }

    void startHidesAndSignals() {
        ScriptedSelectData dlg;
        dlg.show();
        QSignalSpy spy(&dlg, &SelectData::StartScanning);
        QTest::mouseClick(dlg.ui->StartButton, Qt::LeftButton);
        QCOMPARE(spy.count(), 1);
        QVERIFY(!dlg.isVisible());
        dlg.show();
        QTest::mouseClick(dlg.ui->closeButton, Qt::LeftButton);
        QVERIFY(!dlg.isVisible());
        QCOMPARE(spy.count(), 1);
    }
};

QTEST_MAIN(TestSelectData)
#include "tst_gui_selectdata.moc"
