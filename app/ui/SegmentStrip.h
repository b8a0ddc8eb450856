#pragma once
// A row of buttons of which one is chosen (channels, tones, alignments), with
// the chosen one clearly marked on the dark theme.
#include <QStringList>

class QButtonGroup;
class QWidget;

namespace korv {

// The strip; `group` receives its buttons, numbered from 0; `help` gives
// each button's tooltip where it has one.
QWidget* segmentStrip(const QStringList& items, const QStringList& help, QButtonGroup** group);

} // namespace korv
