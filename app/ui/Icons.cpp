#include "app/ui/Icons.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace korv {
namespace {

void draw(QPainter& p, Glyph glyph) {
    switch (glyph) {
    case Glyph::eye:
    case Glyph::eyeClosed: {
        QPainterPath lid;
        lid.moveTo(2, 8);
        lid.quadTo(8, 1, 14, 8);
        if (glyph == Glyph::eye) {
            lid.quadTo(8, 15, 2, 8);
            p.drawPath(lid);
            p.setBrush(p.pen().color());
            p.drawEllipse(QPointF(8, 8), 2, 2);
        } else {
            p.drawPath(lid.translated(0, 2));
        }
        break;
    }
    case Glyph::lock:
    case Glyph::unlock:
        p.drawRect(QRectF(3.5, 7.5, 9, 6.5));
        p.drawArc(QRectF(5, 2.5, 6, 9), 0, glyph == Glyph::lock ? 180 * 16 : 150 * 16);
        if (glyph == Glyph::lock) p.drawLine(QPointF(5, 7), QPointF(5, 6.5));
        break;
    case Glyph::plus:
        p.drawLine(QPointF(8, 3), QPointF(8, 13));
        p.drawLine(QPointF(3, 8), QPointF(13, 8));
        break;
    case Glyph::group:
        p.drawRect(QRectF(2.5, 5.5, 11, 8));
        p.drawLine(QPointF(2.5, 5.5), QPointF(4.5, 3.5));
        p.drawLine(QPointF(4.5, 3.5), QPointF(8, 3.5));
        p.drawLine(QPointF(8, 3.5), QPointF(9.5, 5.5));
        break;
    case Glyph::adjust:
        p.drawEllipse(QPointF(8, 8), 5.5, 5.5);
        p.setBrush(p.pen().color());
        p.drawPie(QRectF(2.5, 2.5, 11, 11), 90 * 16, 180 * 16);
        break;
    case Glyph::fill:
        p.drawRect(QRectF(2.5, 2.5, 11, 11));
        for (int i = 0; i < 3; ++i)
            p.drawLine(QPointF(2.5, 5 + i * 3.5), QPointF(13.5, 5 + i * 3.5));
        break;
    case Glyph::mask:
        p.drawRect(QRectF(2.5, 2.5, 11, 11));
        p.setBrush(p.pen().color());
        p.drawEllipse(QPointF(8, 8), 3, 3);
        break;
    case Glyph::up:
    case Glyph::down: {
        p.save();
        if (glyph == Glyph::down) {
            p.translate(8, 8);
            p.rotate(180);
            p.translate(-8, -8);
        }
        p.drawLine(QPointF(8, 13), QPointF(8, 3));
        p.drawLine(QPointF(8, 3), QPointF(4, 7));
        p.drawLine(QPointF(8, 3), QPointF(12, 7));
        p.restore();
        break;
    }
    case Glyph::duplicate:
        p.drawRect(QRectF(2.5, 5.5, 8, 8));
        p.drawLine(QPointF(5.5, 2.5), QPointF(13.5, 2.5));
        p.drawLine(QPointF(13.5, 2.5), QPointF(13.5, 10.5));
        break;
    case Glyph::trash:
        p.drawLine(QPointF(2, 4.5), QPointF(14, 4.5));
        p.drawLine(QPointF(6, 4.5), QPointF(6.5, 2.5));
        p.drawLine(QPointF(6.5, 2.5), QPointF(9.5, 2.5));
        p.drawLine(QPointF(9.5, 2.5), QPointF(10, 4.5));
        p.drawRect(QRectF(4, 4.5, 8, 9.5));
        break;
    }
}

QPixmap render(Glyph glyph, const QColor& colour, qreal scale) {
    QPixmap pixmap(int(16 * scale), int(16 * scale));
    pixmap.setDevicePixelRatio(scale);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(colour, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    draw(p, glyph);
    return pixmap;
}

} // namespace

QIcon glyphIcon(Glyph glyph) {
    QIcon icon;
    for (qreal scale : {1.0, 2.0}) {
        icon.addPixmap(render(glyph, QColor(215, 215, 220), scale), QIcon::Normal);
        icon.addPixmap(render(glyph, QColor(110, 110, 115), scale), QIcon::Disabled);
    }
    return icon;
}

} // namespace korv
