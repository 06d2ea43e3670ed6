#include "lumtarengine.h"

#include "textcodec.h"

#include <QTextCodec>

GooseDataOffsetAddr gblGooseDataOffsetAddr[6];

CStep::CStep()
{
    constexpr int kFirstCurrent = 8;
    for (int i = kFirstCurrent; i < 16; ++i) {
        outPara[i].scaleFactor = 0.001F;
        outPara[i].isCurrent = 1;
    }
}

LumtarEngine::LumtarEngine()
{
    QTextCodec *gbk = QTextCodec::codecForName("GBK");
    textcodec::setCodecForTr(gbk);
    textcodec::setCodecForCStrings(gbk);
}

LumtarEngine::~LumtarEngine()
{
    closeLink();
}
