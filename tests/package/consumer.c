/* A program that knows zb as it is installed. */
#include <stdio.h>
#include <zb.h>

int main(void) {
    ZbFieldSpec fields[1] = {{"NAME", 'C', 10, 0}};
    uint16_t data;
    uint32_t record;
    if (ZBDINIT(100, 1) != 0 || ZBDDCREATE("c.dbf", 1, fields, ZB_DialectClassic) != 0) return 1;
    if (ZBDDOPENX(&data, "c.dbf", ZB_DialectClassic) != 0) return 2;
    if (ZBDDFNPUT((int16_t)data, "NAME", "installed") != 0) return 3;
    if (ZBDDRPUT((int16_t)data, &record, 0) != 0) return 4;
    printf("record %u\n", (unsigned)record);
    return ZBDTERM();
}
