#include "ScaningThread.h"

QByteArray ScaningThread::QDecode(const QString&) { return {}; }
QString ScaningThread::DecodeAttName(const QString&) { return {}; }
