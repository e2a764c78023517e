#include "DwarfBenchGen.h"

#include <QFile>
#include <QTextStream>

namespace DwarfBenchGen {
namespace {

constexpr int PERIPHERALS = 64;
constexpr int REGISTERS = 12;
constexpr int BITS = 8;

bool WriteFile(const QString& Path, const QString& Text) {
    QFile F(Path);
    if (!F.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    return F.write(Text.toUtf8()) >= 0;
}

QString Header() {
    QString S;
    QTextStream O(&S);
    O << "#ifndef BENCH_DEVICE_H\n#define BENCH_DEVICE_H\n#include <stdint.h>\n"
      << "#define PERIPH_BASE 0x40000000u\n";
    for (int p = 0; p < PERIPHERALS; ++p) {
        O << "typedef struct {\n";
        for (int r = 0; r < REGISTERS; ++r) {
            O << "    volatile uint32_t R" << r << ";\n";
        }
        O << "} P" << p << "_TypeDef;\n";
        O << "#define P" << p << " ((P" << p << "_TypeDef *)(PERIPH_BASE + 0x400u * " << p << "u))\n";
        for (int r = 0; r < REGISTERS; ++r) {
            for (int b = 0; b < BITS; ++b) {
                O << "#define P" << p << "_R" << r << "_B" << b << "_Pos " << b * 4 << "u\n";
                O << "#define P" << p << "_R" << r << "_B" << b << "_Msk (0xFu << P" << p << "_R" << r << "_B"
                  << b << "_Pos)\n";
            }
        }
    }
    O << "typedef enum { MODE_OFF, MODE_ON, MODE_IDLE, MODE_FAULT } mode_t_;\n"
      << "struct list_node { struct list_node *next; void *owner; uint32_t key; };\n"
      << "#endif\n";
    return S;
}

QString Unit(int u, const SHAPE& Shape) {
    QString S;
    QTextStream O(&S);
    const QString P = QStringLiteral("u%1_").arg(u);
    O << "#include \"device.h\"\n";
    for (int m = 0; m < Shape.MacrosPerUnit; ++m) {
        O << "#define " << P.toUpper() << "CONFIG_ITEM_" << m << " (" << m * 5 << "u + 0x100u)\n";
    }
    for (int i = 0; i < Shape.FunctionsPerUnit; ++i) {
        O << "#define " << P.toUpper() << "LIMIT" << i << " (" << i * 3 + 7 << ")\n";
    }
    for (int k = 0; k < Shape.TypesPerUnit; ++k) {
        const QString T = P + "rec" + QString::number(k);
        if (k % 5 == 4) {
            O << "enum " << T << "_state { " << T.toUpper() << "_A, " << T.toUpper() << "_B, " << T.toUpper()
              << "_C = " << k << " };\n";
        }
        O << "struct " << T << " {\n    int32_t a;\n    uint16_t b;\n    uint8_t flags[" << 2 + k % 6
          << "];\n    float f;\n    struct list_node node;\n";
        O << "    struct " << P << "rec" << (k > 0 ? k - 1 : 0) << " *prev;\n";
        O << "    P" << k % PERIPHERALS << "_TypeDef *hw;\n";
        if (k % 3 == 0) {
            O << "    union { uint32_t word; uint8_t bytes[4]; } raw;\n";
        }
        if (k % 5 == 4) {
            O << "    enum " << T << "_state state;\n";
        }
        O << "};\ntypedef struct " << T << " " << T << "_t;\n";
    }
    for (int g = 0; g < Shape.GlobalsPerUnit; ++g) {
        const int k = g % Shape.TypesPerUnit;
        O << P << "rec" << k << "_t " << P << "g" << g << ";\n";
        O << "static uint32_t " << P << "count" << g << "[" << 1 + g % 7 << "];\n";
    }
    for (int i = 0; i < Shape.FunctionsPerUnit; ++i) {
        const int k = i % Shape.TypesPerUnit;
        const QString R = P + "rec" + QString::number(k) + "_t";
        const QString F = P + "fn" + QString::number(i);
        O << "static inline int " << F << "_step(const " << R << " *r, int x) {\n"
          << "    return r->a * x + r->b - (int)r->flags[x & 1];\n}\n";
        O << "int " << F << "(" << R << " *r, int n, uint32_t mask) {\n"
          << "    int acc = 0;\n"
          << "    for (int j = 0; j < n && j < " << P.toUpper() << "LIMIT" << i << "; ++j) {\n"
          << "        int t = " << F << "_step(r, j);\n"
          << "        acc += t ^ (int)(mask >> (j & 7));\n"
          << "        if (r->prev) {\n            acc += r->prev->a;\n        }\n    }\n"
          << "    r->hw->R" << i % REGISTERS << " = (uint32_t)acc & P" << k % PERIPHERALS << "_R"
          << i % REGISTERS << "_B" << i % BITS << "_Msk;\n"
          << "    " << P << "count" << i % Shape.GlobalsPerUnit << "[0] += (uint32_t)n;\n";
        if (i > 0) {
            O << "    if (acc > " << i << ") {\n        acc = " << P << "fn" << i - 1 << "((" << P << "rec"
              << (i - 1) % Shape.TypesPerUnit << "_t *)&" << P << "g" << (i - 1) % Shape.GlobalsPerUnit
              << ", n - 1, mask) + 1;\n    }\n";
        }
        O << "    return acc;\n}\n";
    }
    const int Last = Shape.FunctionsPerUnit - 1;
    O << "int " << P << "entry(int n) {\n    return " << P << "fn" << Last << "((" << P << "rec"
      << Last % Shape.TypesPerUnit << "_t *)&" << P << "g" << Last % Shape.GlobalsPerUnit
      << ", n, 0xFFu);\n}\n";
    return S;
}

QString Main(const SHAPE& Shape) {
    QString S;
    QTextStream O(&S);
    for (int u = 0; u < Shape.Units; ++u) {
        O << "int u" << u << "_entry(int n);\n";
    }
    O << "volatile int bench_sink;\nint main(void) {\n    int n = bench_sink;\n";
    for (int u = 0; u < Shape.Units; ++u) {
        O << "    bench_sink += u" << u << "_entry(n);\n";
    }
    O << "    return 0;\n}\n";
    return S;
}

} // namespace

QString UnitFile(int Unit) {
    return QStringLiteral("unit%1.c").arg(Unit, 4, 10, QLatin1Char('0'));
}

bool WriteSources(const QString& Dir, const SHAPE& Shape) {
    if (!WriteFile(Dir + "/device.h", Header()) || !WriteFile(Dir + "/main.c", Main(Shape))) {
        return false;
    }
    for (int u = 0; u < Shape.Units; ++u) {
        if (!WriteFile(Dir + "/" + UnitFile(u), Unit(u, Shape))) {
            return false;
        }
    }
    return true;
}

} // namespace DwarfBenchGen
