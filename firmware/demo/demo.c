/* The demo program that ./run.sh debugs: a counter, a few nested calls and some data to look at. */
#include <stdint.h>

struct Point {
    int X;
    int Y;
};

volatile uint32_t g_Counter;
struct Point g_Points[4] = {{1, 2}, {3, 4}, {5, 6}, {7, 8}};
static const char* const g_Greeting = "Hello from the demo program";

static int Square(int Value) {
    return Value * Value;
}

static int SumOfSquares(const struct Point* P) {
    return Square(P->X) + Square(P->Y);
}

int Factorial(int N) {
    return N <= 1 ? 1 : N * Factorial(N - 1);
}

int main(void) {
    int Total = 0;
    for (int i = 0; i < 4; ++i) {
        Total += SumOfSquares(&g_Points[i]);
    }
    Total += Factorial(5) + (g_Greeting[0] == 'H');
    for (;;) {
        g_Counter += (uint32_t)Total;
    }
}
