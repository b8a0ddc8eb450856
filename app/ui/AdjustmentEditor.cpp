#include "app/ui/AdjustmentEditor.h"

#include "app/ui/ColorWell.h"
#include "app/ui/CurvesEditor.h"
#include "app/ui/Histogram.h"
#include "app/ui/SegmentStrip.h"
#include "app/ui/ValueSlider.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLinearGradient>
#include <QPainter>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>

namespace korv {
namespace {

QColor toQColor(const RGBA& c) {
    return QColor::fromRgbF(float(c.r), float(c.g), float(c.b), float(c.a));
}

RGBA fromQColor(const QColor& c) {
    return {c.redF(), c.greenF(), c.blueF(), 1.0};
}

// The gradient of a Gradient Map, as it will colour the picture from dark to light.
class GradientBar : public QWidget {
public:
    std::function<std::optional<AdjustmentSpec>()> spec;
    GradientBar() { setFixedHeight(22); }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter p(this);
        const auto s = spec ? spec() : std::nullopt;
        if (!s) return;
        QLinearGradient g(0, 0, width(), 0);
        for (const auto& stop : s->stops) {
            const double at = std::clamp(s->reverse ? 1 - stop.position : stop.position, 0.0, 1.0);
            g.setColorAt(at, toQColor(RGBA(stop.color.r, stop.color.g, stop.color.b, 1)));
        }
        p.fillRect(rect(), g);
        p.setPen(QColor(90, 90, 95));
        p.drawRect(rect().adjusted(0, 0, -1, -1));
    }
};

} // namespace

AdjustmentEditor::AdjustmentEditor(StudioModel& model, const Uuid& id, QWidget* parent)
    : QWidget(parent), id(id), model_(model), column_(new QVBoxLayout(this)) {
    column_->setContentsMargins(0, 4, 0, 0);
    column_->setSpacing(6);
    if (const auto s = spec()) build(*s);
    sync();
}

AdjustmentEditor::~AdjustmentEditor() = default;

std::optional<AdjustmentSpec> AdjustmentEditor::spec() const {
    auto* d = model_.doc();
    const StudioLayer* l = d ? d->find(id) : nullptr;
    if (!l || !l->adjustment) return std::nullopt;
    return *l->adjustment;
}

std::string AdjustmentEditor::shape(const AdjustmentSpec& spec) {
    std::string s(toString(spec.type));
    if (spec.type == AdjustmentType::hueSaturation) s += spec.colorize ? "+colorize" : "";
    if (spec.type == AdjustmentType::blackWhite) s += spec.bwTint ? "+tint" : "";
    if (spec.type == AdjustmentType::gradientMap) s += "/" + std::to_string(spec.stops.size());
    return s;
}

void AdjustmentEditor::sync() {
    for (const auto& refresh : refreshers_)
        refresh();
}

void AdjustmentEditor::edit(const std::string& name, const std::function<void(AdjustmentSpec&)>& change) {
    model_.setLayer(id, name, false, [&](StudioLayer& l) {
        if (l.adjustment) change(*l.adjustment);
    });
}

QWidget* AdjustmentEditor::slider(const QString& label, double low, double high, Get get, Set set,
                                  int decimals, double scale, const QString& suffix, bool showSign,
                                  bool logarithmic) {
    // A long label reads better on a line of its own above the slider.
    const bool above = label.size() > 18;
    auto* s = new ValueSlider(above ? QString() : label, low, high, decimals, scale, suffix);
    s->setSigned(showSign);
    s->setLogarithmic(logarithmic);
    auto binding = model_.bindAdj<double>(id, get, set, 0.0);
    s->changed = [binding](double v) { binding.set(v); };
    refreshers_.push_back([s, binding] { s->setValue(binding.get()); });
    if (!above) {
        column_->addWidget(s);
        return s;
    }
    auto* box = new QWidget;
    auto* v = new QVBoxLayout(box);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(2);
    auto* title = new QLabel(label);
    title->setWordWrap(true);
    v->addWidget(title);
    v->addWidget(s);
    column_->addWidget(box);
    return box;
}

QWidget* AdjustmentEditor::toggle(const QString& label, std::function<bool(const AdjustmentSpec&)> get,
                                  std::function<void(AdjustmentSpec&, bool)> set) {
    auto* box = new QCheckBox(label);
    auto binding = model_.bindAdj<bool>(id, get, set, false);
    connect(box, &QCheckBox::clicked, this, [binding](bool on) { binding.set(on); });
    refreshers_.push_back([box, binding] { box->setChecked(binding.get()); });
    column_->addWidget(box);
    return box;
}

QWidget* AdjustmentEditor::picker(const QStringList& items, int* state) {
    QButtonGroup* group = nullptr;
    auto* row = segmentStrip(items, {}, &group);
    if (auto* chosen = group->button(*state)) chosen->setChecked(true);
    connect(group, &QButtonGroup::idClicked, this, [this, state](int i) {
        *state = i;
        sync();
    });
    column_->addWidget(row);
    return row;
}

QWidget* AdjustmentEditor::note(const QString& text) {
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setStyleSheet("color: rgb(165,165,170);");
    column_->addWidget(label);
    return label;
}

void AdjustmentEditor::buildLevels() {
    picker({"RGB", "Red", "Green", "Blue"}, &channel);
    histogram_ = new Histogram;
    column_->addWidget(histogram_);
    refreshers_.push_back([this] {
        if (auto* d = model_.doc()) histogram_->showLayer(*d, id, channel);
    });
    auto field = [this](double LevelsChannel::*member) {
        return std::pair<Get, Set>{[this, member](const AdjustmentSpec& a) {
                                       return size_t(channel) < a.levels.size()
                                                  ? a.levels[size_t(channel)].*member
                                                  : LevelsChannel{}.*member;
                                   },
                                   [this, member](AdjustmentSpec& a, double v) {
                                       if (a.levels.size() < 4) a.levels.resize(4);
                                       auto& c = a.levels[size_t(channel)];
                                       // The input points can't pass each other: at least one level apart.
                                       if (member == &LevelsChannel::inBlack)
                                           v = std::min(v, c.inWhite - 1 / 255.0);
                                       if (member == &LevelsChannel::inWhite)
                                           v = std::max(v, c.inBlack + 1 / 255.0);
                                       c.*member = v;
                                   }};
    };
    auto [ib, ibs] = field(&LevelsChannel::inBlack);
    slider("Input black", 0, 255, ib, ibs, 0, 255);
    auto [iw, iws] = field(&LevelsChannel::inWhite);
    slider("Input white", 0, 255, iw, iws, 0, 255);
    auto [g, gs] = field(&LevelsChannel::gamma);
    slider("Gamma correction", 0.1, 9.99, g, gs, 2, 1, QString(), false, true);
    auto [ob, obs] = field(&LevelsChannel::outBlack);
    slider("Output black", 0, 255, ob, obs, 0, 255);
    auto [ow, ows] = field(&LevelsChannel::outWhite);
    slider("Output white", 0, 255, ow, ows, 0, 255);
    auto* autoLevels = new QPushButton("Auto Levels");
    autoLevels->setToolTip("Sets the black and white points where the picture's levels begin and end");
    connect(autoLevels, &QPushButton::clicked, this, [this] { model_.autoLevels(id, channel); });
    column_->addWidget(autoLevels);
}

void AdjustmentEditor::buildCurves() {
    picker({"RGB", "Red", "Green", "Blue"}, &channel);
    auto* graph = new CurvesEditor;
    graph->points = model_.bindAdj<std::vector<CurvePoint>>(
        id,
        [this](const AdjustmentSpec& a) {
            return size_t(channel) < a.curves.size() ? a.curves[size_t(channel)]
                                                     : std::vector<CurvePoint>{{0, 0}, {1, 1}};
        },
        [this](AdjustmentSpec& a, const std::vector<CurvePoint>& points) {
            if (a.curves.size() < 4) a.curves.resize(4, {{0, 0}, {1, 1}});
            a.curves[size_t(channel)] = points;
        },
        {{0, 0}, {1, 1}});
    curvesCounts_ = std::make_unique<HistogramCache>();
    refreshers_.push_back([this, graph] {
        graph->channel = channel;
        if (auto* d = model_.doc()) graph->backdrop = &curvesCounts_->countsFor(*d, id);
        graph->update();
    });
    column_->addWidget(graph);
    note("Click to add a point, drag to shape, drag a point off the graph to remove it.");
    auto* reset = new QPushButton("Reset Curve");
    connect(reset, &QPushButton::clicked, this, [this] {
        edit("Reset Curve", [this](AdjustmentSpec& a) {
            if (a.curves.size() < 4) a.curves.resize(4, {{0, 0}, {1, 1}});
            a.curves[size_t(channel)] = {{0, 0}, {1, 1}};
        });
    });
    column_->addWidget(reset);
}

void AdjustmentEditor::buildGradientMap(const AdjustmentSpec& spec) {
    auto* bar = new GradientBar;
    bar->spec = [this] { return this->spec(); };
    refreshers_.push_back([bar] { bar->update(); });
    column_->addWidget(bar);
    for (size_t i = 0; i < spec.stops.size(); ++i) {
        auto* row = new QWidget;
        auto* h = new QHBoxLayout(row);
        h->setContentsMargins(0, 0, 0, 0);
        auto* well = new ColorWell("Stop color");
        well->get = [this, i] {
            const auto s = this->spec();
            return s && i < s->stops.size() ? toQColor(s->stops[i].color) : QColor(Qt::black);
        };
        well->set = [this, i](const QColor& c) {
            edit("Adjust", [&](AdjustmentSpec& a) {
                if (i < a.stops.size()) a.stops[i].color = fromQColor(c);
            });
        };
        refreshers_.push_back([well] { well->sync(); });
        h->addWidget(well);
        auto* position = new ValueSlider("", 0, 100, 0, 100, "%");
        auto binding = model_.bindAdj<double>(
            id, [i](const AdjustmentSpec& a) { return i < a.stops.size() ? a.stops[i].position : 0.0; },
            [i](AdjustmentSpec& a, const double& v) {
                if (i < a.stops.size()) a.stops[i].position = v;
            },
            0.0);
        position->changed = [binding](double v) { binding.set(v); };
        refreshers_.push_back([position, binding] { position->setValue(binding.get()); });
        h->addWidget(position, 1);
        auto* remove = new QToolButton;
        remove->setText("−");
        remove->setToolTip("Remove this stop");
        remove->setEnabled(spec.stops.size() > 2);
        connect(remove, &QToolButton::clicked, this, [this, i] {
            edit("Remove Gradient Stop", [i](AdjustmentSpec& a) {
                if (a.stops.size() > 2 && i < a.stops.size())
                    a.stops.erase(a.stops.begin() + std::ptrdiff_t(i));
            });
        });
        h->addWidget(remove);
        column_->addWidget(row);
    }
    auto* addStop = new QPushButton("Add Stop");
    addStop->setToolTip("Adds a stop halfway along the widest gap, in the colour found there");
    connect(addStop, &QPushButton::clicked, this, [this] {
        edit("Add Gradient Stop", [](AdjustmentSpec& a) {
            auto stops = a.stops;
            std::sort(stops.begin(), stops.end(),
                      [](const auto& x, const auto& y) { return x.position < y.position; });
            if (stops.size() < 2) {
                a.stops.push_back({0.5, RGBA(0.5, 0.5, 0.5, 1)});
                return;
            }
            size_t widest = 0;
            for (size_t k = 0; k + 1 < stops.size(); ++k)
                if (stops[k + 1].position - stops[k].position >
                    stops[widest + 1].position - stops[widest].position)
                    widest = k;
            const auto& lo = stops[widest];
            const auto& hi = stops[widest + 1];
            a.stops.push_back({(lo.position + hi.position) / 2,
                               RGBA((lo.color.r + hi.color.r) / 2, (lo.color.g + hi.color.g) / 2,
                                    (lo.color.b + hi.color.b) / 2, 1)});
        });
    });
    column_->addWidget(addStop);
    toggle(
        "Reverse", [](const AdjustmentSpec& a) { return a.reverse; },
        [](AdjustmentSpec& a, bool on) { a.reverse = on; });
}

void AdjustmentEditor::build(const AdjustmentSpec& spec) {
    auto field = [](double AdjustmentSpec::*member) {
        return std::pair<Get, Set>{[member](const AdjustmentSpec& a) { return a.*member; },
                                   [member](AdjustmentSpec& a, double v) { a.*member = v; }};
    };
    auto add = [&](const QString& label, double AdjustmentSpec::*member, double low, double high,
                   int decimals = 0, double scale = 1, const QString& suffix = QString(),
                   bool showSign = false) {
        auto [g, s] = field(member);
        return slider(label, low, high, g, s, decimals, scale, suffix, showSign);
    };
    auto preserve = [&] {
        toggle(
            "Preserve luminosity", [](const AdjustmentSpec& a) { return a.preserveLuminosity; },
            [](AdjustmentSpec& a, bool on) { a.preserveLuminosity = on; });
    };

    switch (spec.type) {
    case AdjustmentType::levels:
        buildLevels();
        break;
    case AdjustmentType::curves:
        buildCurves();
        break;
    case AdjustmentType::hueSaturation:
        toggle(
            "Colorize", [](const AdjustmentSpec& a) { return a.colorize; },
            [](AdjustmentSpec& a, bool on) { a.colorize = on; });
        if (spec.colorize) {
            add("Hue", &AdjustmentSpec::colorizeHue, 0, 360, 0, 1, "°");
            add("Saturation", &AdjustmentSpec::colorizeSaturation, 0, 100);
        } else {
            add("Hue", &AdjustmentSpec::hue, -180, 180, 0, 1, "°", true);
            add("Saturation", &AdjustmentSpec::saturation, -100, 100, 0, 1, "", true);
        }
        add("Lightness", &AdjustmentSpec::lightness, -100, 100, 0, 1, "", true);
        break;
    case AdjustmentType::vibrance:
        add("Vibrance (protects already-colorful areas and skin)", &AdjustmentSpec::vibrance, -100, 100, 0, 1,
            "", true);
        add("Saturation", &AdjustmentSpec::vibranceSaturation, -100, 100, 0, 1, "", true);
        break;
    case AdjustmentType::colorBalance: {
        picker({"Shadows", "Midtones", "Highlights"}, &tone);
        const char* names[] = {"Cyan · Red", "Magenta · Green", "Yellow · Blue"};
        for (size_t j = 0; j < 3; ++j)
            slider(
                names[j], -100, 100,
                [this, j](const AdjustmentSpec& a) { return a.balance[size_t(tone)][j]; },
                [this, j](AdjustmentSpec& a, double v) { a.balance[size_t(tone)][j] = v; }, 0, 1, "", true);
        preserve();
        break;
    }
    case AdjustmentType::blackWhite: {
        const char* names[] = {"Reds", "Yellows", "Greens", "Cyans", "Blues", "Magentas"};
        for (size_t i = 0; i < 6; ++i)
            slider(
                names[i], -200, 300, [i](const AdjustmentSpec& a) { return a.bw[i]; },
                [i](AdjustmentSpec& a, double v) { a.bw[i] = v; }, 0, 1, "%");
        toggle(
            "Tint", [](const AdjustmentSpec& a) { return a.bwTint; },
            [](AdjustmentSpec& a, bool on) { a.bwTint = on; });
        if (spec.bwTint) {
            add("Tint hue", &AdjustmentSpec::bwTintHue, 0, 360, 0, 1, "°");
            add("Tint strength", &AdjustmentSpec::bwTintSaturation, 0, 100, 0, 1, "%");
        }
        break;
    }
    case AdjustmentType::photoFilter: {
        auto* row = new QWidget;
        auto* h = new QHBoxLayout(row);
        h->setContentsMargins(0, 0, 0, 0);
        h->addWidget(new QLabel("Color"));
        auto* well = new ColorWell("Filter color");
        well->get = [this] {
            const auto s = this->spec();
            return s ? toQColor(s->filterColor) : QColor(Qt::black);
        };
        well->set = [this](const QColor& c) {
            edit("Adjust", [&](AdjustmentSpec& a) { a.filterColor = fromQColor(c); });
        };
        refreshers_.push_back([well] { well->sync(); });
        h->addWidget(well);
        h->addStretch(1);
        column_->addWidget(row);
        add("Density", &AdjustmentSpec::density, 0, 100, 0, 100, "%");
        preserve();
        break;
    }
    case AdjustmentType::gradientMap:
        buildGradientMap(spec);
        break;
    case AdjustmentType::posterize: {
        auto* s = new ValueSlider("Levels", 2, 255);
        auto binding = model_.bindAdj<int64_t>(id, &AdjustmentSpec::posterizeLevels, int64_t(4));
        s->changed = [binding](double v) { binding.set(int64_t(std::lround(v))); };
        refreshers_.push_back([s, binding] { s->setValue(double(binding.get())); });
        column_->addWidget(s);
        break;
    }
    case AdjustmentType::threshold:
        add("Threshold", &AdjustmentSpec::thresholdLevel, 1, 255);
        break;
    case AdjustmentType::brightnessContrast:
        add("Brightness", &AdjustmentSpec::brightness, -150, 150, 0, 1, "", true);
        add("Contrast", &AdjustmentSpec::contrast, -100, 100, 0, 1, "%", true);
        break;
    case AdjustmentType::exposure:
        add("Exposure", &AdjustmentSpec::exposure, -5, 5, 2, 1, "", true);
        add("Offset", &AdjustmentSpec::offset, -0.5, 0.5, 3, 1, "", true);
        slider("Gamma correction", 0.1, 9.99, field(&AdjustmentSpec::gammaCorrection).first,
               field(&AdjustmentSpec::gammaCorrection).second, 2, 1, QString(), false, true);
        break;
    case AdjustmentType::invert:
        note("Turns every color into its opposite. Lower the layer's opacity for a softer look.");
        break;
    }
    column_->addStretch(1);
}

} // namespace korv
