#include "records/IRecordView.h"

namespace {
IRecordView* g_view = nullptr;
}

IRecordView* SetRecordView(IRecordView* View) {
    IRecordView* previous = g_view;
    g_view = View;
    return previous;
}

IRecordView* RecordView() {
    return g_view;
}
