#include "protocol/boardsetup.h"

#include "protocol/hexfield.h"

QByteArray DSP_command::data() const
{
    return hexfield::joined(head, Field, Dig_NO_Low, Dig_NO_High, Field_17, Field_18, Field_19,
                            Field_20, GOOSE_NUM_Field);
}

int DSP_command::setDig_NO(int n)
{
    if (n >= 0 && n <= hexfield::kMax16) {
        hexfield::setNumber(Dig_NO_Low, n & 0xff);
        hexfield::setNumber(Dig_NO_High, n >> 8);
    }
    return 0;
}

int DSP_command::setGOOSE_NUM(int n)
{
    GOOSE_NUM = n;
    hexfield::setNumber(GOOSE_NUM_Field, n);
    return 0;
}

int DSP_command::ReturnGOOSE_NUM() const
{
    return GOOSE_NUM;
}

QByteArray RestFPGA::data() const
{
    return hexfield::joined(head, Reset_Select1, Reset_Select2);
}

void RestFPGA::setGSE(int) { }

void RestFPGA::setSMV(int) { }
