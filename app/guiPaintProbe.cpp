#include "app/guiPaintProbe.h"

#include "app/ReadWholeFile.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QEvent>
#include <QTimer>

#include <cstdio>
#include <ctime>

namespace {

long peakResidentKiB() {
    QByteArray status;
    if (!ReadWholeFile(QStringLiteral("/proc/self/status"), status))
        return -1;
    for (const QByteArray& line : status.split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return -1;
}

class PaintProbe : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* Obj, QEvent* E) override {
        if (E->type() == QEvent::Show && Obj->isWidgetType() && static_cast<QWidget*>(Obj)->isWindow()) {
            std::fprintf(stderr, "shown %s\n", Obj->metaObject()->className());
            std::fflush(stderr);
        } else if (E->type() == QEvent::Paint && !m_done) {
            auto* view = Obj->parent() ? qobject_cast<QAbstractItemView*>(Obj->parent()) : nullptr;
            if (view && view->viewport() == Obj && view->model() && view->model()->rowCount() > 0) {
                m_done = true;
                // After the paint returns and the window's contents went to the display.
                QTimer::singleShot(0, this, [] {
                    timespec ts{};
                    clock_gettime(CLOCK_MONOTONIC, &ts);
                    std::fprintf(stderr, "paint %lld %ld\n",
                                 static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec,
                                 peakResidentKiB());
                    std::fflush(stderr);
                });
            }
        }
        return false;
    }

private:
    bool m_done = false;
};

} // namespace

void InstallPaintProbe() {
    if (!qEnvironmentVariableIsSet("ARGENT_PAINT_PROBE") || !qApp)
        return;
    qApp->installEventFilter(new PaintProbe(qApp));
}
