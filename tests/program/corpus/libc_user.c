/* A program that links real C library code: formatting, parsing, sorting, memory and strings. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <math.h>
#include <time.h>

struct Record {
    char Name[16];
    double Value;
    int Count;
};

static int ByValue(const void* A, const void* B) {
    const struct Record* L = A;
    const struct Record* R = B;
    return (L->Value > R->Value) - (L->Value < R->Value);
}

int main(void) {
    static struct Record Records[8];
    char Text[128];
    for (int i = 0; i < 8; ++i) {
        snprintf(Records[i].Name, sizeof Records[i].Name, "r%d", i);
        Records[i].Value = strtod("3.25", NULL) * sin(i) + atof("1e-3");
        Records[i].Count = atoi("12") + i;
    }
    qsort(Records, 8, sizeof Records[0], ByValue);
    char* Copy = malloc(64);
    strncpy(Copy, Records[0].Name, 63);
    sprintf(Text, "%s %.3f %ld", Copy, Records[7].Value, (long)time(NULL));
    free(Copy);
    return (int)strlen(Text);
}
