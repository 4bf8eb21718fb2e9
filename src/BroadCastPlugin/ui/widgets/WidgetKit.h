#pragma once
// Small builders the panels share: every control gets an object name (tests and the accessibility tree find
// controls by it), state lines wrap, and rows of controls are laid out one way everywhere.

#include <QString>

#include <initializer_list>

class QBoxLayout;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;
class QVariant;
class QWidget;

namespace BroadCastPlugin {

/// Names a new control and returns it, so that it can be made and named in one expression.
template <typename Control>
Control* Named(const char* name, Control* control) {
    control->setObjectName(QString::fromLatin1(name));
    return control;
}

/// A named label whose text wraps: the state and notice lines under a panel's controls.
QLabel* WrappingLabel(const char* name, QWidget* parent);

/// A named search field: its placeholder tells what it searches, and a button clears it.
QLineEdit* SearchField(const char* name, const QString& placeholder, QWidget* parent);

/// Adds a row of controls under `column`, led by a caption when `caption` is not empty; `wide` (one of the
/// controls) takes the spare width.
QHBoxLayout* AddRow(QBoxLayout* column, const QString& caption, std::initializer_list<QWidget*> controls,
                    QWidget* wide = nullptr);

/// The top-level or nested item of `tree` whose column 0 holds `value` under `role`, or null.
QTreeWidgetItem* FindItem(const QTreeWidget* tree, int role, const QVariant& value);

}  // namespace BroadCastPlugin
