#include "probe/backends/Sha256.h"

#include <array>
#include <cstdio>

namespace tarvo {

namespace {

constexpr std::array<uint32_t, 64> K = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

uint32_t Rotr(uint32_t X, int N) {
    return (X >> N) | (X << (32 - N));
}

void Compress(std::array<uint32_t, 8>& H, const uint8_t* Block) {
    uint32_t W[64];
    for (int i = 0; i < 16; ++i) {
        W[i] = uint32_t(Block[4 * i]) << 24 | uint32_t(Block[4 * i + 1]) << 16 |
               uint32_t(Block[4 * i + 2]) << 8 | Block[4 * i + 3];
    }
    for (int i = 16; i < 64; ++i) {
        const uint32_t S0 = Rotr(W[i - 15], 7) ^ Rotr(W[i - 15], 18) ^ (W[i - 15] >> 3);
        const uint32_t S1 = Rotr(W[i - 2], 17) ^ Rotr(W[i - 2], 19) ^ (W[i - 2] >> 10);
        W[i] = W[i - 16] + S0 + W[i - 7] + S1;
    }
    uint32_t A = H[0], B = H[1], C = H[2], D = H[3], E = H[4], F = H[5], G = H[6], Hh = H[7];
    for (int i = 0; i < 64; ++i) {
        const uint32_t T1 =
            Hh + (Rotr(E, 6) ^ Rotr(E, 11) ^ Rotr(E, 25)) + ((E & F) ^ (~E & G)) + K[i] + W[i];
        const uint32_t T2 = (Rotr(A, 2) ^ Rotr(A, 13) ^ Rotr(A, 22)) + ((A & B) ^ (A & C) ^ (B & C));
        Hh = G;
        G = F;
        F = E;
        E = D + T1;
        D = C;
        C = B;
        B = A;
        A = T1 + T2;
    }
    const uint32_t Out[8] = {A, B, C, D, E, F, G, Hh};
    for (int i = 0; i < 8; ++i) {
        H[i] += Out[i];
    }
}

} // namespace

std::string Sha256Hex(const uint8_t* Data, size_t Size) {
    std::array<uint32_t, 8> H = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    size_t Done = 0;
    for (; Size - Done >= 64; Done += 64) {
        Compress(H, Data + Done);
    }
    // The tail, a one bit, zeros and the length in bits: one or two more blocks.
    uint8_t Tail[128] = {};
    const size_t Rest = Size - Done;
    for (size_t i = 0; i < Rest; ++i) {
        Tail[i] = Data[Done + i];
    }
    Tail[Rest] = 0x80;
    const size_t TailSize = Rest < 56 ? 64 : 128;
    const uint64_t Bits = static_cast<uint64_t>(Size) * 8;
    for (int i = 0; i < 8; ++i) {
        Tail[TailSize - 1 - i] = static_cast<uint8_t>(Bits >> (8 * i));
    }
    for (size_t At = 0; At < TailSize; At += 64) {
        Compress(H, Tail + At);
    }
    std::string Hex;
    char Word[9];
    for (uint32_t V : H) {
        std::snprintf(Word, sizeof Word, "%08x", V);
        Hex += Word;
    }
    return Hex;
}

} // namespace tarvo
