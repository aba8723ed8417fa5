// The main window's widgets driven as a user would, over a real controller with fake services.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableView>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include "AppController.h"
#include "CopyInfo.h"
#include "FaultyFileLayer.h"
#include "MainWindow.h"
#include "MetadataField.h"
#include "MetadataFieldEditor.h"
#include "Preferences.h"
#include "PreferencesWindow.h"
#include "QVVolume.h"
#include "RecordingAppView.h"
#include "SheetAnswerer.h"
#include "TestFiles.h"
#include "TestServices.h"
#include "VerificationFailureWindow.h"
#include "VolumeTableModel.h"

namespace {

// The child of parent of type T showing text, or null.
template <typename T>
T* named(const QWidget& parent, const QString& text) {
    for (T* found : parent.findChildren<T*>())
        if (found->text() == text)
            return found;
    return nullptr;
}

class MainWindowTest : public testing::Test {
  protected:
    MainWindowTest() : settings_(work_.filePath("settings.plist")) {
        Preferences(settings_).registerAndMigrate();
        settings_.setObject(SettingsKey::concurrentThreads, PropertyList(qint64(2)));
        services_.files = &layer_;
        window_ = std::make_unique<MainWindow>(services_.fakeDesktop, *services_.files);
        controller_ = std::make_unique<AppController>(settings_, *window_, services_.bundle());
        controller_->setDestinationList({{1, dest("one")}, {1, dest("two")}});
        window_->attach(*controller_);
        window_->show();
        window_->activateWindow();
        static_cast<void>(QTest::qWaitForWindowActive(window_.get()));  // keys go to its focus
    }
    void TearDown() override {
        controller_->dropWaitingVolumes();
        controller_->stopRunningTransfers();
        drainWorkers();
    }

    QString dest(const QString& name) const { return work_.filePath("dest " + name); }
    // A card of one clip; its reads are slowed so a transfer stays busy while the test looks.
    std::shared_ptr<QVVolume> card(const QString& name, bool slow = false) {
        const QString root = work_.filePath("cards/" + name);
        TestFiles::write(root + "/CONTENTS/CLIP/" + name + "C001.MXF", QByteArray(3 << 20, 'c'));
        if (slow)
            layer_.slowReads(root + "/CONTENTS/CLIP/" + name + "C001.MXF", 400);
        return QVVolume::volumeWithName(name, root, 0, settings_, services_.clock);
    }
    void list(const std::vector<std::shared_ptr<QVVolume>>& volumes) {
        controller_->setDataArray(volumes);
        controller_->reloadVolumeList();
    }
    void select(const std::vector<int>& rows) {
        QTableView& table = window_->table();
        table.clearSelection();
        for (const int row : rows)
            table.selectionModel()->select(table.model()->index(row, 0),
                                           QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    QModelIndex cell(int row, const QString& column) const {
        VolumeTableModel& model = window_->model();
        return model.index(row, model.columnOf(column));
    }

    QTemporaryDir work_;
    SettingsStore settings_;
    FaultyFileLayer layer_;
    RecordingNotifier notifier_;
    TestServices services_{notifier_};
    std::unique_ptr<MainWindow> window_;  // outlives the controller that shows through it
    std::unique_ptr<AppController> controller_;
};

}  // namespace

TEST_F(MainWindowTest, TheToolbarFollowsTheSelectedRowsAndTheSelectionSurvivesReloads) {
    // Before the first card, a line says where copies will go.
    EXPECT_TRUE(window_->destinationSummary().isVisible());
    EXPECT_TRUE(window_->destinationSummaryLabel().text().contains(dest("two")));
    const auto idle = card("A001");
    const auto cancelled = card("B001");
    cancelled->setStatus(QVVolume::Cancelled);
    list({idle, cancelled});
    EXPECT_FALSE(window_->destinationSummary().isVisible());
    QAction& transfer = window_->transferAction();
    EXPECT_FALSE(transfer.isEnabled()) << "nothing selected";
    EXPECT_FALSE(window_->eraseAction().isEnabled());

    select({0});
    EXPECT_EQ(transfer.text(), "Transfer");
    EXPECT_TRUE(transfer.isEnabled());
    EXPECT_FALSE(window_->eraseAction().isEnabled()) << "no verified copy yet";
    EXPECT_TRUE(window_->ejectAction().isEnabled());
    select({});
    EXPECT_FALSE(transfer.isEnabled());

    // A card arriving at the top moves the rows; the same volume stays selected.
    select({1});
    list({card("C001"), idle, cancelled});
    EXPECT_EQ(window_->selectedRows(), std::vector<int>{2});
    EXPECT_EQ(window_->model().volumeAt(2)->name, "B001");
}

TEST_F(MainWindowTest, EditsInTheListReachTheVolumeAndTheSettings) {
    const auto volume = card("A001");
    list({volume});
    QTableView& table = window_->table();

    // The destination pop-up: "All", then each ticked destination.
    for (const int choice : {2, 0}) {
        table.edit(cell(0, VolumeTableModel::colDestination));
        auto* popup = table.findChild<QComboBox*>();
        ASSERT_NE(popup, nullptr);
        ASSERT_EQ(popup->count(), 3);
        EXPECT_EQ(popup->itemText(0) + "," + popup->itemText(2), "All,dest two");
        popup->setCurrentIndex(choice);
        Q_EMIT popup->activated(choice);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);  // the closed editor
        if (choice == 2) {
            EXPECT_EQ(volume->outputs(), QStringList{dest("two")});
            EXPECT_EQ(cell(0, VolumeTableModel::colDestination).data().toString(), "dest two");
        }
    }
    EXPECT_FALSE(volume->outputs().has_value()) << "\"All\" clears the choice";

    // A metadata cell: the value goes into the volume and becomes the field's default.
    const QModelIndex reel = cell(0, "QVMetaReel");
    ASSERT_TRUE(reel.isValid());
    table.edit(reel);
    auto* editor = table.findChild<QLineEdit*>();
    ASSERT_NE(editor, nullptr);
    editor->setFocus();
    editor->selectAll();
    QTest::keyClicks(editor, "17");
    // The card's progress goes on while the user types: the typing is kept.
    window_->volumesChanged({volume->snapshot()});
    controller_->reloadVolumeList();
    EXPECT_EQ(editor->text(), "17");
    QTest::keyClick(editor, Qt::Key_Return);
    QCoreApplication::processEvents();  // the delegate commits on its next turn
    EXPECT_EQ(volume->metadata().at("QVMetaReel"), "17");
    EXPECT_EQ(reel.data().toString(), "17");
    EXPECT_EQ(MetadataField::listFrom(settings_.object(SettingsKey::metadata)).at(1).defaultVal,
              "17");  // the Reel field's

    // The project name and its history.
    QComboBox& project = window_->projectField();
    project.setFocus();
    project.lineEdit()->setText("Night Shoot");
    QTest::keyClick(project.lineEdit(), Qt::Key_Return);
    EXPECT_EQ(settings_.get(SettingsKey::projectName), "Night Shoot");
}

TEST_F(MainWindowTest, TheCancelBadgeCancelsOnlyItsRow) {
    const auto first = card("A001", true);
    const auto second = card("B001", true);
    list({first, second});
    controller_->addVolumeToQueue(first);
    controller_->addVolumeToQueue(second);
    ASSERT_TRUE(waitUntil([&] {
        return first->status() == QVVolume::Copying && second->status() == QVVolume::Copying;
    }));
    ASSERT_TRUE(waitUntil([&] {
        return window_->model()
            .data(cell(1, VolumeTableModel::colCancel), VolumeTableModel::BusyRole)
            .toBool();
    }));
    SheetAnswerer answerer;
    answerer.answerWith("Confirm");
    QTableView& table = window_->table();
    const QPoint badge = table.visualRect(cell(1, VolumeTableModel::colCancel)).center();
    QTest::mouseClick(table.viewport(), Qt::LeftButton, {}, badge);
    ASSERT_TRUE(waitUntil([&] { return !answerer.seen().isEmpty(); }));
    EXPECT_EQ(answerer.seen().constFirst(),
              "Are you sure you wish to abort this transfer? | Confirm, Cancel, Confirm & Remove");
    EXPECT_EQ(second->status(), QVVolume::Cancelled);
    EXPECT_EQ(first->status(), QVVolume::Copying);
}

TEST_F(MainWindowTest, QuittingAsksOnlyWhileAVolumeCopiesVerifiesOrFormats) {
    const auto volume = card("A001");
    list({volume});
    SheetAnswerer answerer;
    for (const VolumeStatus status :
         {QVVolume::Unrecognised, QVVolume::Failed, QVVolume::Idle, QVVolume::Unmounting,
          QVVolume::Done, QVVolume::Cancelled, QVVolume::Finishing}) {
        volume->setStatus(status);
        window_->show();
        EXPECT_TRUE(window_->close()) << int(status);
    }
    EXPECT_TRUE(answerer.seen().isEmpty());
    // Only Quit closes the window; Cancel and Return keep it and its transfers.
    const std::pair<VolumeStatus, QString> asked[] = {{QVVolume::Copying, "Cancel"},
                                                      {QVVolume::Verifying, "Cancel"},
                                                      {QVVolume::Formatting, "Return"},
                                                      {QVVolume::Copying, "Quit"}};
    for (const auto& [status, answer] : asked) {
        volume->setStatus(status);
        answerer.answerWith(answer);
        window_->show();
        EXPECT_EQ(window_->close(), answer == "Quit") << int(status) << answer.toStdString();
    }
    EXPECT_EQ(answerer.seen(), QStringList(4,
                                           "File operations are in progress. Are you sure you "
                                           "wish to quit? | Quit, Cancel"));
    volume->setStatus(QVVolume::Idle);
}

TEST_F(MainWindowTest, TheFailureReviewListsEachFailedFileAndRestartQueuesTheVolumeAgain) {
    const auto volume = card("A001");
    list({volume});
    for (int i = 1; i <= 3; ++i) {
        auto file = std::make_shared<CopyInfo>();
        file->failedFile = dest("one") + QString("/Untitled Project/A001/CLIP%1.MXF").arg(i);
        file->sourceChecksum = QString("c0ffee%1").arg(i);
        file->destChecksum = QString("badbad%1").arg(i);
        volume->addFailedFile(file);
    }
    volume->setStatus(QVVolume::Failed);
    window_->showVerificationFailureForVolume(volume);
    VerificationFailureWindow& review = window_->failureReview();
    EXPECT_TRUE(review.isVisible());
    EXPECT_EQ(review.label().text(),
              "Verification failed on the volume A001. The failed files are listed below.");
    QTableWidget& table = review.table();
    ASSERT_EQ(table.rowCount(), 3);
    EXPECT_EQ(
        table.item(2, 0)->text() + " " + table.item(2, 1)->text() + " " + table.item(2, 2)->text(),
        dest("one") + "/Untitled Project/A001/CLIP3.MXF c0ffee3 badbad3");

    QPushButton* restart = named<QPushButton>(review, "Restart Transfer");
    ASSERT_NE(restart, nullptr);
    SheetAnswerer answerer;
    answerer.answerWith("Cancel");
    restart->click();
    EXPECT_EQ(volume->status(), QVVolume::Failed) << "Cancel changes nothing";
    EXPECT_TRUE(controller_->waitingObjects().empty());
    answerer.answerWith("Restart Transfer");
    restart->click();
    EXPECT_FALSE(review.isVisible());
    EXPECT_EQ(answerer.seen(),
              QStringList(2,
                          "Are you sure you wish to restart the transfer? | Restart Transfer, "
                          "Cancel"));
    EXPECT_TRUE(waitUntil([&] { return volume->status() != QVVolume::Failed; }))
        << "the volume is transferred again";
}

TEST_F(MainWindowTest,
       PreferencesListEachDestinationOnceOfferOnlyTickedOnesAndWarnWhileAChecksOff) {
    for (const char* name : {"one", "two", "three"})
        ASSERT_TRUE(QDir().mkpath(dest(name)));
    PreferencesWindow& preferences = window_->preferencesWindow();
    preferences.addDestinations({dest("three"), dest("three"), dest("one")});
    QTableWidget& table = preferences.destinations();
    ASSERT_EQ(table.rowCount(), 3) << "each folder once";
    EXPECT_EQ(table.item(2, 1)->text(), dest("three"));

    table.item(1, 0)->setCheckState(Qt::Unchecked);  // "dest two"
    const auto stored = Preferences(settings_).destinationList();
    ASSERT_EQ(stored.size(), 3u);
    EXPECT_EQ(stored[1].selected, 0) << "stored at once";
    QStringList offered;
    for (const auto& [title, path] : window_->model().destinationChoices())
        offered << title;
    EXPECT_EQ(offered, (QStringList{"All", "dest one", "dest three"}));
    EXPECT_EQ(controller_->destinationList().at(1).selected, 0) << "the controller's own list";

    preferences.destinations().selectRow(2);
    preferences.removeSelectedDestinations();
    EXPECT_EQ(controller_->destinationList().size(), 2u);
    EXPECT_EQ(preferences.destinations().rowCount(), 2);

    // A warning shows while a verification check is off.
    preferences.show();
    QCheckBox* checksums = named<QCheckBox>(preferences, "Verify checksums");
    ASSERT_NE(checksums, nullptr);
    ASSERT_TRUE(checksums->isChecked());
    EXPECT_TRUE(preferences.verificationWarning().isHidden());
    checksums->click();
    EXPECT_FALSE(preferences.verificationWarning().isHidden());
    EXPECT_FALSE(settings_.get(SettingsKey::verifyFileChecksums));
    checksums->click();
    EXPECT_TRUE(preferences.verificationWarning().isHidden());
}

TEST_F(MainWindowTest, TheFieldEditorNamesFieldsRefusesTakenTitlesAndItsPathNamesTheFolder) {
    PreferencesWindow& preferences = window_->preferencesWindow();
    MetadataFieldEditor& editor = preferences.fieldEditor();
    preferences.tabs().setCurrentWidget(&editor);
    preferences.show();
    preferences.activateWindow();
    static_cast<void>(QTest::qWaitForWindowActive(&preferences));
    QTableWidget& table = editor.table();
    const int columnsBefore = window_->model().columnCount();
    for (int i = 0; i < 3; ++i)
        editor.add();
    QCoreApplication::processEvents();
    ASSERT_EQ(table.rowCount(), 6);
    EXPECT_EQ(
        table.item(3, 0)->text() + "," + table.item(4, 0)->text() + "," + table.item(5, 0)->text(),
        "Untitled,Untitled-2,Untitled-3");
    EXPECT_EQ(window_->model().columnCount(), columnsBefore + 3) << "shown in the list";
    EXPECT_EQ(table.item(2, 2)->text(), "(auto)") << "the timestamp fills itself in";
    EXPECT_FALSE(table.item(2, 2)->flags() & Qt::ItemIsEditable);

    // Typed into a cell as a user would: edit, type, Return.
    const auto type = [&](int row, int column, const QString& text) {
        preferences.activateWindow();  // an alert may have taken it away
        static_cast<void>(QTest::qWaitForWindowActive(&preferences));
        table.setCurrentCell(row, column);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);  // closed editors
        table.editItem(table.item(row, column));
        QLineEdit* field = nullptr;
        for (QLineEdit* open : table.viewport()->findChildren<QLineEdit*>())
            field = open->isVisible() ? open : field;
        ASSERT_NE(field, nullptr);
        field->setFocus();
        field->selectAll();
        QTest::keyClicks(field, text);
        QTest::keyClick(field, Qt::Key_Return);
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
    };
    SheetAnswerer answerer;
    answerer.answerWith("OK");
    answerer.answerWith("OK");
    type(4, 0, "Reel");
    type(5, 0, "Untitled-3");  // its own title counts as taken too
    EXPECT_EQ(answerer.seen(), QStringList(2, "This metadata field already exists | OK"));
    EXPECT_EQ(table.item(4, 0)->text(), "Untitled-2");

    type(3, 0, "Camera");
    table.item(3, 2)->setText("\"A\"");
    QCoreApplication::processEvents();
    qobject_cast<QCheckBox*>(table.cellWidget(3, 4))->setChecked(true);  // in the path
    QCoreApplication::processEvents();
    auto* key = qobject_cast<QComboBox*>(table.cellWidget(3, 6));
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->itemText(0), "(None)");
    ASSERT_GT(key->count(), 1);
    Q_EMIT key->activated(1);
    QCoreApplication::processEvents();
    EXPECT_EQ(editor.pathPreview(), "/Day/Reel/Timestamp/Camera");
    // What the transfers read: the settings.
    const MetadataField camera =
        MetadataField::listFrom(settings_.object(SettingsKey::metadata))[3];
    EXPECT_EQ(camera.title, "Camera");
    EXPECT_EQ(camera.defaultVal, "A") << "quotes are taken out";
    EXPECT_EQ(camera.useInPath, 1);
    EXPECT_EQ(camera.qtMetadataKey, MetadataFieldEditor::qtMetaCache().front().key);
}
