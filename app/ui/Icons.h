#pragma once
// Small line icons drawn with QPainter, so that the panels look the same
// whatever fonts and icon themes the machine has.
#include <QIcon>

namespace korv {

enum class Glyph {
    eye,
    eyeClosed,
    lock,
    unlock,
    plus,
    group,
    adjust,
    fill,
    mask,
    up,
    down,
    duplicate,
    trash
};

QIcon glyphIcon(Glyph glyph);

} // namespace korv
