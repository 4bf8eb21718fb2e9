#include "BroadCastPlugin/ui/widgets/WidgetKit.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

namespace BroadCastPlugin {

QLabel* WrappingLabel(const char* name, QWidget* parent) {
    auto* label = Named(name, new QLabel(parent));
    label->setWordWrap(true);
    return label;
}

QLineEdit* SearchField(const char* name, const QString& placeholder, QWidget* parent) {
    auto* field = Named(name, new QLineEdit(parent));
    field->setPlaceholderText(placeholder);
    field->setClearButtonEnabled(true);
    return field;
}

QHBoxLayout* AddRow(QBoxLayout* column, const QString& caption, std::initializer_list<QWidget*> controls,
                    QWidget* wide) {
    auto* row = new QHBoxLayout();
    if (!caption.isEmpty()) {
        row->addWidget(new QLabel(caption, column->parentWidget()));
    }
    for (QWidget* control : controls) {
        row->addWidget(control, control == wide ? 1 : 0);
    }
    column->addLayout(row);
    return row;
}

QTreeWidgetItem* FindItem(const QTreeWidget* tree, int role, const QVariant& value) {
    for (QTreeWidgetItemIterator it(const_cast<QTreeWidget*>(tree)); *it != nullptr; ++it) {
        if ((*it)->data(0, role) == value) {
            return *it;
        }
    }
    return nullptr;
}

}  // namespace BroadCastPlugin
