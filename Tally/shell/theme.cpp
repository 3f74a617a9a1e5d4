#include "shell/theme.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
#include <QSvgRenderer>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

namespace tally::Theme {

namespace {

Scheme g_scheme = Scheme::light;

QColor rgb(double r, double g, double b) {
    return QColor::fromRgbF(static_cast<float>(r), static_cast<float>(g), static_cast<float>(b));
}
QColor black(double alpha) {
    return QColor::fromRgbF(0, 0, 0, static_cast<float>(alpha));
}
QColor white(double alpha) {
    return QColor::fromRgbF(1, 1, 1, static_cast<float>(alpha));
}
bool dark() {
    return g_scheme == Scheme::dark;
}

QPalette paletteFor(Scheme scheme) {
    const std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette = fusion->standardPalette();
    if (scheme == Scheme::light) return palette;
    const QColor window = rgb(0.11, 0.11, 0.118);
    const QColor base = rgb(0.149, 0.149, 0.157);
    const QColor text = rgb(0.92, 0.92, 0.93);
    const QColor disabled = rgb(0.45, 0.45, 0.47);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, rgb(0.17, 0.17, 0.18));
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, disabled);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, rgb(0.19, 0.19, 0.2));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Light, rgb(0.26, 0.26, 0.27));
    palette.setColor(QPalette::Midlight, rgb(0.22, 0.22, 0.23));
    palette.setColor(QPalette::Mid, rgb(0.16, 0.16, 0.17));
    palette.setColor(QPalette::Dark, rgb(0.08, 0.08, 0.09));
    palette.setColor(QPalette::Shadow, Qt::black);
    palette.setColor(QPalette::Highlight, rgb(1.0, 0.6, 0.18));
    palette.setColor(QPalette::HighlightedText, Qt::black);
    palette.setColor(QPalette::Link, rgb(1.0, 0.6, 0.18));
    for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, disabled);
    return palette;
}

// Renders the SVG at exactly the size asked, so the tray's 22 px and a HiDPI 44 px are
// both drawn from the outline, never scaled from a bitmap.
class FlameEngine : public QIconEngine {
  public:
    FlameEngine(bool filled, QColor color) : m_filled(filled), m_color(color) {}
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode, QIcon::State) override {
        painter->drawPixmap(rect, render(rect.size() * painter->device()->devicePixelRatioF()));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override { return render(size); }
    QIconEngine* clone() const override { return new FlameEngine(m_filled, m_color); }

  private:
    QPixmap render(QSize size) const {
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QSvgRenderer renderer(m_filled ? QStringLiteral(":/resources/flame-fill.svg")
                                       : QStringLiteral(":/resources/flame.svg"));
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(size)));
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), m_color);
        painter.end();
        return QPixmap::fromImage(image);
    }
    bool m_filled;
    QColor m_color;
};

}  // namespace

Scheme scheme() {
    return g_scheme;
}

void apply(Scheme scheme) {
    g_scheme = scheme;
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(paletteFor(scheme));
}

QColor accent() {
    return dark() ? rgb(1.0, 0.6, 0.18) : rgb(0.96, 0.51, 0.04);
}
QColor ink() {
    return dark() ? rgb(0.92, 0.92, 0.93) : rgb(0.1, 0.1, 0.1);
}
QColor secondaryInk() {
    return dark() ? white(0.55) : black(0.5);
}
QColor paper() {
    return dark() ? rgb(0.11, 0.11, 0.118) : Qt::white;
}
QColor surface() {
    return dark() ? rgb(0.149, 0.149, 0.157) : Qt::white;
}
QColor border() {
    return dark() ? white(0.11) : black(0.09);
}
QColor borderStrong() {
    return dark() ? white(0.21) : black(0.17);
}
QColor fillMuted() {
    return dark() ? white(0.06) : black(0.045);
}
QColor fillSelected() {
    return dark() ? white(0.11) : black(0.08);
}
QColor shadow() {
    return dark() ? black(0.3) : black(0.05);
}

void paintSurface(QPainter& painter, const QRectF& rect, qreal radius) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    // A blur of 1.5 px one pixel down: two soft passes of the shadow colour.
    const QRectF body = rect.adjusted(0.5, 0.5, -0.5, -1.5);
    painter.setPen(Qt::NoPen);
    for (qreal spread : {1.5, 0.75}) {
        QColor shade = shadow();
        shade.setAlphaF(shade.alphaF() * 0.5f);
        painter.setBrush(shade);
        painter.drawRoundedRect(
            body.translated(0, 1).adjusted(-spread / 2, -spread / 2, spread / 2, spread / 2),
            radius + spread / 2, radius + spread / 2);
    }
    painter.setBrush(surface());
    painter.setPen(QPen(border(), 1));
    painter.drawRoundedRect(body, radius, radius);
    painter.restore();
}

void paintBar(QPainter& painter, const QRectF& track, double fraction, const QColor& fill) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const qreal radius = track.height() / 2;
    painter.setBrush(fillSelected());
    painter.drawRoundedRect(track, radius, radius);
    const double share = std::isfinite(fraction) ? std::clamp(fraction, 0.0, 1.0) : 0;
    painter.setBrush(fill);
    painter.drawRoundedRect(
        QRectF(track.topLeft(), QSizeF(std::max<qreal>(2, track.width() * share), track.height())),
        radius, radius);
    painter.restore();
}

QIcon flame(bool filled, const QColor& color) {
    return QIcon(new FlameEngine(filled, color));
}

}  // namespace tally::Theme

namespace tally {

SurfaceCard::SurfaceCard(QWidget* parent, qreal radius) : QWidget(parent), m_radius(radius) {}

void SurfaceCard::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    Theme::paintSurface(painter, QRectF(rect()), m_radius);
}

namespace {

const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kPortalSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString kAppearance = QStringLiteral("org.freedesktop.appearance");
const QString kColorScheme = QStringLiteral("color-scheme");

// The portal wraps its answer in variants, twice over from Read(): unwrap until a number.
std::optional<Theme::Scheme> schemeOf(QVariant value) {
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    bool ok = false;
    const uint number = value.toUInt(&ok);
    if (!ok) return std::nullopt;
    return number == 1 ? Theme::Scheme::dark : Theme::Scheme::light;  // 0 none, 2 light
}

}  // namespace

ThemeWatcher::ThemeWatcher(QObject* parent) : QObject(parent) {
    const QByteArray forced = qgetenv("TALLY_COLOR_SCHEME");
    if (forced == "dark" || forced == "light") {
        follow(forced == "dark" ? Theme::Scheme::dark : Theme::Scheme::light);
        return;
    }
    // The platform's own palette until the portal answers, if it ever does.
    const bool darkPalette = QApplication::palette().color(QPalette::Window).lightnessF() < 0.5;
    follow(darkPalette ? Theme::Scheme::dark : Theme::Scheme::light);

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    // QtDBus finds the slot's argument types by name, and Qt 6 knows a type's name only
    // once it has been registered: without this the subscription silently fails.
    qRegisterMetaType<QDBusVariant>();
    bus.connect(kPortalService, kPortalPath, kPortalSettings, QStringLiteral("SettingChanged"),
                this, SLOT(portalSettingChanged(QString, QString, QDBusVariant)));
    QDBusMessage read = QDBusMessage::createMethodCall(kPortalService, kPortalPath, kPortalSettings,
                                                       QStringLiteral("Read"));
    read << kAppearance << kColorScheme;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(read, 2000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* call) {
                QDBusPendingReply<QVariant> reply = *call;
                if (!reply.isError())
                    if (auto scheme = schemeOf(reply.value())) follow(*scheme);
                call->deleteLater();
            });
}

void ThemeWatcher::portalSettingChanged(const QString& group, const QString& key,
                                        const QDBusVariant& value) {
    if (group != kAppearance || key != kColorScheme) return;
    if (auto scheme = schemeOf(value.variant())) follow(*scheme);
}

void ThemeWatcher::follow(Theme::Scheme scheme) {
    const bool changed = scheme != Theme::scheme();
    Theme::apply(scheme);
    if (changed) emit schemeChanged(scheme);
}

}  // namespace tally
