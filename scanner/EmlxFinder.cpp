#include "ScaningThread.h"

void ScaningThread::EMLXFinder() {}
void ScaningThread::treeCreator(QString) {}
bool ScaningThread::GetParentId(QString, unsigned long long, unsigned long long*) { return false; }
