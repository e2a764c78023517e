/* Data of every kind for the debugger's variable views and expressions: structs (nested, with
 * pointers), unions, bit-fields, enums, arrays of arrays, floats and doubles, char* strings. */
#include <stdint.h>

enum Color { COLOR_RED, COLOR_GREEN = 5, COLOR_BLUE };

typedef enum { MODE_IDLE = -1, MODE_RUN = 1, MODE_SLEEP = 2 } Mode;

struct Flags {
    unsigned Ready : 1;
    unsigned Error : 1;
    unsigned Level : 3;
    signed Delta : 4;
    unsigned : 0;
    unsigned Wide : 12;
};

union Word {
    uint32_t Value;
    uint16_t Halves[2];
    uint8_t Bytes[4];
    float Real;
};

struct Point {
    int16_t X;
    int16_t Y;
};

struct Shape {
    const char* Name;
    enum Color Fill;
    struct Point Corners[4];
    struct Shape* Next;
    double Area;
};

struct Point g_Origin = {0, 0};
struct Shape g_Square = {"square", COLOR_BLUE, {{0, 0}, {4, 0}, {4, 4}, {0, 4}}, 0, 16.0};
struct Shape g_Triangle = {"triangle", COLOR_GREEN, {{0, 0}, {6, 0}, {0, 3}, {0, 0}}, &g_Square, 9.0};
struct Flags g_Flags = {1, 0, 5, -3, 0xABC};
union Word g_Word = {0x3FC00000u};
int32_t g_Matrix[3][4] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}};
uint8_t g_Bytes[2][2][3] = {{{1, 2, 3}, {4, 5, 6}}, {{7, 8, 9}, {10, 11, 12}}};
float g_Float = 3.25f;
double g_Double = -2.5e-3;
const char* g_Text = "Hello, target";
char g_Buffer[16] = "buffer";
enum Color g_Color = COLOR_GREEN;
Mode g_Mode = MODE_IDLE;
int64_t g_Big = -1234567890123LL;
uint64_t g_BigUnsigned = 0xFEDCBA9876543210ULL;
volatile uint32_t g_Loops;

__attribute__((noinline)) double ShapeArea(const struct Shape* S) {
    /* Shoelace formula over the corners, in double. */
    double Sum = 0.0;
    for (int i = 0; i < 4; ++i) {
        const struct Point* A = &S->Corners[i];
        const struct Point* B = &S->Corners[(i + 1) % 4];
        Sum += (double)A->X * B->Y - (double)B->X * A->Y;
    }
    return Sum < 0 ? -Sum / 2 : Sum / 2;
}

__attribute__((noinline)) float Scale(float Value, float Factor) {
    return Value * Factor + 0.5f;
}

__attribute__((noinline)) int SumMatrix(int32_t (*M)[4], int Rows) {
    int Sum = 0;
    for (int r = 0; r < Rows; ++r) {
        for (int c = 0; c < 4; ++c) {
            Sum += M[r][c];
        }
    }
    return Sum;
}

__attribute__((noinline)) int Length(const char* Text) {
    int N = 0;
    while (Text[N] != '\0') {
        ++N;
    }
    return N;
}

__attribute__((noinline)) void UpdateFlags(struct Flags* F, enum Color C) {
    F->Ready = !F->Ready;
    F->Level = (unsigned)(F->Level + 1);
    F->Delta = (signed)(F->Delta - 1);
    if (C == COLOR_BLUE) {
        F->Error = 1;
    }
}

int main(void) {
    struct Shape Local = g_Triangle;
    union Word W = g_Word;
    double Area = ShapeArea(&Local) + ShapeArea(g_Triangle.Next);
    float Scaled = Scale(W.Real, g_Float);
    int Sum = SumMatrix(g_Matrix, 3) + Length(g_Text) + Length(g_Buffer);
    UpdateFlags(&g_Flags, g_Square.Fill);
    g_Double = Area + Scaled + Sum;
    g_Mode = MODE_RUN;
    for (;;) {
        /* Keeps the stores above: without it they count as dead, since main never returns. */
        __asm__ volatile("" ::: "memory");
        g_Loops++;
        g_Word.Halves[g_Loops & 1]++;
    }
}
