#include "VolumeItemDelegate.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>

#include "VolumeTableModel.h"

namespace {

constexpr int kRowHeight = 46;
constexpr int kMargin = 6;
constexpr int kBadgeSize = 22;

QColor subtitleColor(const QStyleOptionViewItem& option) {
    if (option.state & QStyle::State_Selected)
        return option.palette.color(QPalette::HighlightedText);
    return QColor(Qt::gray);
}

QColor textColor(const QStyleOptionViewItem& option) {
    return option.palette.color(option.state & QStyle::State_Selected ? QPalette::HighlightedText
                                                                      : QPalette::Text);
}

}  // namespace

VolumeItemDelegate::VolumeItemDelegate(VolumeTableModel& model, QObject* parent)
    : QStyledItemDelegate(parent), model_(model) {}

void VolumeItemDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    const QString id = model_.columnId(index.column());
    if (id != VolumeTableModel::colName && id != VolumeTableModel::colStatus &&
        id != VolumeTableModel::colCancel) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    // The selection background first, then our own content over it.
    QStyleOptionViewItem background = option;
    initStyleOption(&background, index);
    background.text.clear();
    background.icon = QIcon();
    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &background, painter, option.widget);

    painter->save();
    if (id == VolumeTableModel::colName)
        paintTitled(painter, option, index);
    else if (id == VolumeTableModel::colStatus)
        paintStatus(painter, option, index);
    else
        paintBadge(painter, option, index);
    painter->restore();
}

void VolumeItemDelegate::paintTitled(QPainter* painter, const QStyleOptionViewItem& option,
                                     const QModelIndex& index) const {
    QRect area = option.rect.adjusted(kMargin, 4, -kMargin, -4);
    const auto icon = index.data(Qt::DecorationRole).value<QIcon>();
    const int iconSize = area.height();
    if (!icon.isNull()) {
        icon.paint(painter, QRect(area.topLeft(), QSize(iconSize, iconSize)));
        area.setLeft(area.left() + iconSize + kMargin);
    }
    const QFontMetrics metrics(option.font);
    const QRect top(area.left(), area.top() + 2, area.width(), metrics.height());
    const QRect bottom(area.left(), top.bottom() + 2, area.width(), metrics.height());
    painter->setPen(textColor(option));
    painter->drawText(top, Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(index.data().toString(), Qt::ElideMiddle, top.width()));
    painter->setPen(subtitleColor(option));
    painter->drawText(bottom, Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(index.data(VolumeTableModel::SubtitleRole).toString(),
                                         Qt::ElideRight, bottom.width()));
}

void VolumeItemDelegate::paintStatus(QPainter* painter, const QStyleOptionViewItem& option,
                                     const QModelIndex& index) const {
    if (!index.data(VolumeTableModel::BusyRole).toBool()) {
        // Idle or finished: the status text alone, centred in the row.
        const QRect area = option.rect.adjusted(kMargin, 0, -kMargin, 0);
        painter->setPen(textColor(option));
        painter->drawText(area, Qt::AlignLeft | Qt::AlignVCenter, index.data().toString());
        return;
    }
    const QFontMetrics metrics(option.font);
    const QRect area = option.rect.adjusted(kMargin, 3, -kMargin, -3);
    const QRect text(area.left(), area.top(), area.width(), metrics.height());
    const QRect bar(area.left(), text.bottom() + 2, area.width(), 8);
    const QRect subtitle(area.left(), bar.bottom() + 2, area.width(), metrics.height());
    painter->setPen(textColor(option));
    painter->drawText(text, Qt::AlignLeft | Qt::AlignVCenter, index.data().toString());

    QStyleOptionProgressBar progress;
    progress.rect = bar;
    progress.minimum = 0;
    progress.maximum = 1000;
    const double fraction = index.data(VolumeTableModel::ProgressRole).toDouble();
    progress.progress = fraction < 0 ? 0 : int(fraction * 1000);
    if (fraction < 0)
        progress.maximum = 0;  // busy, amount unknown
    progress.state = QStyle::State_Enabled | QStyle::State_Horizontal;
    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ProgressBarGroove, &progress, painter, option.widget);
    style->drawControl(QStyle::CE_ProgressBarContents, &progress, painter, option.widget);

    painter->setPen(subtitleColor(option));
    painter->drawText(subtitle, Qt::AlignLeft | Qt::AlignVCenter,
                      index.data(VolumeTableModel::SubtitleRole).toString());
}

QRect VolumeItemDelegate::badgeRect(const QRect& cell) {
    QRect badge(0, 0, kBadgeSize, kBadgeSize);
    badge.moveCenter(cell.center());
    return badge;
}

void VolumeItemDelegate::paintBadge(QPainter* painter, const QStyleOptionViewItem& option,
                                    const QModelIndex& index) const {
    if (!index.data(VolumeTableModel::BusyRole).toBool())
        return;
    const QRect badge = badgeRect(option.rect);
    painter->setRenderHint(QPainter::Antialiasing);
    // The bezel and the stop square.
    painter->setPen(QPen(option.palette.color(QPalette::Mid), 1));
    painter->setBrush(option.palette.color(QPalette::Button));
    painter->drawEllipse(badge);
    painter->setPen(Qt::NoPen);
    painter->setBrush(option.palette.color(QPalette::ButtonText));
    const int square = kBadgeSize / 3;
    painter->drawRect(
        QRect(badge.center() - QPoint(square / 2, square / 2), QSize(square, square)));
    // The spinner: an arc turning round the bezel.
    painter->setBrush(Qt::NoBrush);
    painter->setPen(
        QPen(option.palette.color(QPalette::Highlight), 2.5, Qt::SolidLine, Qt::RoundCap));
    painter->drawArc(badge.adjusted(1, 1, -1, -1), -spinnerAngle_ * 16, 90 * 16);
}

QSize VolumeItemDelegate::sizeHint(const QStyleOptionViewItem& option,
                                   const QModelIndex& index) const {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setHeight(std::max(size.height(), kRowHeight));
    if (model_.columnId(index.column()) == VolumeTableModel::colCancel)
        size.setWidth(kBadgeSize + 2 * kMargin);
    return size;
}

QWidget* VolumeItemDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                                          const QModelIndex& index) const {
    if (model_.columnId(index.column()) != VolumeTableModel::colDestination)
        return QStyledItemDelegate::createEditor(parent, option, index);
    auto* popup = new QComboBox(parent);  // owned by the view, which deletes its editors
    for (const auto& [title, path] : model_.destinationChoices()) {
        const QIcon icon = QIcon::fromTheme(path.isEmpty() ? QStringLiteral("folder-open")
                                                           : QStringLiteral("folder"));
        popup->addItem(icon, title, path);
    }
    // The choice takes effect as soon as it is picked. Qt's editor factory is const, but the
    // signals it must send are not.
    auto* self = const_cast<VolumeItemDelegate*>(this);
    connect(popup, &QComboBox::activated, self, [self, popup] {
        Q_EMIT self->commitData(popup);
        Q_EMIT self->closeEditor(popup);
    });
    return popup;
}

void VolumeItemDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
    // Rows are refreshed while cards copy; what the user is typing must survive that.
    if (const auto* field = qobject_cast<QLineEdit*>(editor); field && field->isModified())
        return;
    auto* popup = qobject_cast<QComboBox*>(editor);
    if (popup == nullptr) {
        QStyledItemDelegate::setEditorData(editor, index);
        return;
    }
    const int found = popup->findData(index.data(Qt::EditRole).toString());
    popup->setCurrentIndex(found < 0 ? 0 : found);
}

void VolumeItemDelegate::setModelData(QWidget* editor, QAbstractItemModel* model,
                                      const QModelIndex& index) const {
    auto* popup = qobject_cast<QComboBox*>(editor);
    if (popup == nullptr) {
        QStyledItemDelegate::setModelData(editor, model, index);
        return;
    }
    model->setData(index, popup->currentData().toString(), Qt::EditRole);
}

bool VolumeItemDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                     const QStyleOptionViewItem& option, const QModelIndex& index) {
    if (event->type() == QEvent::MouseButtonRelease &&
        model_.columnId(index.column()) == VolumeTableModel::colCancel &&
        index.data(VolumeTableModel::BusyRole).toBool()) {
        const auto* mouse = static_cast<QMouseEvent*>(event);
        if (badgeRect(option.rect).contains(mouse->position().toPoint())) {
            Q_EMIT cancelClicked(index.row());
            return true;
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}
