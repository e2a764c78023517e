/* Calls of every kind for the debugger's stepping, call stack and unwinding: nested calls, direct and
 * mutual recursion, calls through function pointers, inline functions and static locals. */
#include <stdint.h>

typedef int (*BinaryOp)(int, int);

volatile int g_Sink;
volatile uint32_t g_Iterations;

static inline __attribute__((always_inline)) int Twice(int Value) {
    return Value * 2;
}

static inline int Clamp(int Value, int Low, int High) {
    return Value < Low ? Low : Value > High ? High : Value;
}

__attribute__((noinline)) int Add(int A, int B) {
    return A + B;
}

__attribute__((noinline)) int Multiply(int A, int B) {
    return A * B;
}

__attribute__((noinline)) int Apply(BinaryOp Op, int A, int B) {
    return Op(A, B);
}

__attribute__((noinline)) int Fibonacci(int N) {
    if (N < 2) {
        return N;
    }
    return Fibonacci(N - 1) + Fibonacci(N - 2);
}

int IsOdd(int N);

__attribute__((noinline)) int IsEven(int N) {
    return N == 0 ? 1 : IsOdd(N - 1);
}

__attribute__((noinline)) int IsOdd(int N) {
    return N == 0 ? 0 : IsEven(N - 1);
}

/* Counts its calls in a static local. */
__attribute__((noinline)) int NextId(void) {
    static int s_Counter = 100;
    return ++s_Counter;
}

__attribute__((noinline)) int Level3(int X) {
    int Local = Twice(X) + NextId();
    g_Sink = Local;
    return Clamp(Local, 0, 1000);
}

__attribute__((noinline)) int Level2(int X) {
    int Result = Level3(X + 1);
    return Result + 1;
}

__attribute__((noinline)) int Level1(int X) {
    int Result = Level2(X * 3);
    return Result - 1;
}

static const BinaryOp g_Ops[] = {Add, Multiply};

int main(void) {
    int Total = Level1(5);
    for (unsigned i = 0; i < sizeof g_Ops / sizeof g_Ops[0]; ++i) {
        Total += Apply(g_Ops[i], Total, (int)i + 2);
    }
    Total += Fibonacci(10);
    Total += IsEven(7) + IsOdd(7);
    g_Sink = Total;
    for (;;) {
        /* Keeps the stores above: without it they count as dead, since main never returns. */
        __asm__ volatile("" ::: "memory");
        g_Iterations++;
        g_Sink = Level1((int)(g_Iterations & 7));
    }
}
