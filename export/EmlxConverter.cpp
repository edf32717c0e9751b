#include "ScaningThread.h"

void ScaningThread::EMLXConverter() {}
void ScaningThread::CreateRGEWraper(QString) {}
QString ScaningThread::PathExtractor(QString, QString) { return {}; }
