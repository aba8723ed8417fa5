#pragma once
// Draws the volume list's cells (icon, name and gray card type; status with its progress bar
// and time left; the cancel badge with its spinner) and edits the destination with a pop-up.
// Main thread only.

#include <QStyledItemDelegate>

class VolumeTableModel;

class VolumeItemDelegate : public QStyledItemDelegate {
    Q_OBJECT

  public:
    explicit VolumeItemDelegate(VolumeTableModel& model, QObject* parent = nullptr);

    /// Turns the spinners of busy rows one step; the window calls this on a timer.
    void advanceSpinner() { spinnerAngle_ = (spinnerAngle_ + 30) % 360; }

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

  Q_SIGNALS:
    /// The cancel badge of a busy row was clicked.
    void cancelClicked(int row);

  private:
    void paintTitled(QPainter* painter, const QStyleOptionViewItem& option,
                     const QModelIndex& index) const;
    void paintStatus(QPainter* painter, const QStyleOptionViewItem& option,
                     const QModelIndex& index) const;
    void paintBadge(QPainter* painter, const QStyleOptionViewItem& option,
                    const QModelIndex& index) const;
    static QRect badgeRect(const QRect& cell);

    VolumeTableModel& model_;
    int spinnerAngle_ = 0;
};
