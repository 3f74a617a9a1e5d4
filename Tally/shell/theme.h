// The app's palette and its one card style. Colours follow the desktop's light or dark
// scheme: each accessor answers for the scheme in force when it is called, so a widget
// that reads them while painting recolours itself on the next paint. ThemeWatcher decides
// the scheme and applies it; every widget then receives QEvent::PaletteChange.
//
// GUI thread only. The scheme is process-wide state set only by ThemeWatcher (or a test).
#pragma once

#include <QColor>
#include <QDBusVariant>
#include <QIcon>
#include <QObject>
#include <QRectF>
#include <QWidget>

class QPainter;

namespace tally::Theme {

enum class Scheme { light, dark };

Scheme scheme();
// Sets the scheme and gives the application the Fusion style with a matching palette.
void apply(Scheme scheme);

QColor accent();        // orange: budget pressure and highlights
QColor ink();           // primary text
QColor secondaryInk();  // captions and labels under figures
QColor paper();         // window background
QColor surface();       // card background
QColor border();
QColor borderStrong();
QColor fillMuted();
QColor fillSelected();
QColor shadow();

// The card style: `rect` filled with surface() in a rounded rectangle of `radius`, a
// 1-pixel border() inset by half a pixel, and a soft shadow() 1 pixel below.
void paintSurface(QPainter& painter, const QRectF& rect, qreal radius);

// A progress bar: the `track` in fillSelected() with round ends, filled from the left to
// `fraction` of its width in `fill`, never narrower than 2 pixels (so an empty bar still
// shows where it is) and never wider than the track.
void paintBar(QPainter& painter, const QRectF& track, double fraction, const QColor& fill);

// The flame in `color`, outline or filled, rendered crisp at every size the icon is asked
// for (tray sizes and HiDPI included).
QIcon flame(bool filled, const QColor& color);

}  // namespace tally::Theme

namespace tally {

// A container that paints Theme::paintSurface behind its children: every card uses it.
class SurfaceCard : public QWidget {
    Q_OBJECT
  public:
    explicit SurfaceCard(QWidget* parent = nullptr, qreal radius = 10);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    qreal m_radius;
};

// Decides the scheme and follows it live: TALLY_COLOR_SCHEME=light|dark when set (tests,
// screenshots); else the freedesktop portal's org.freedesktop.appearance color-scheme,
// read at start and followed through its SettingChanged signal; else the lightness of the
// palette the platform gave at start. Owned by the app; lives as long as it.
class ThemeWatcher : public QObject {
    Q_OBJECT
  public:
    explicit ThemeWatcher(QObject* parent = nullptr);

  signals:
    void schemeChanged(Theme::Scheme scheme);

  private slots:
    void portalSettingChanged(const QString& group, const QString& key, const QDBusVariant& value);

  private:
    void follow(Theme::Scheme scheme);
};

}  // namespace tally
