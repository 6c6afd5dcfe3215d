#!/usr/bin/env bash
# The paired run: Varitap's worst case (bench/varitap-worst-case.txt) against
# LSP Artistic Delay with ten filtered lines (bench/lsp-art-delay-ten-lines.txt)
# through the built bundle's command-line host, on 10 s of stereo pink noise
# at 44.1 kHz in 512-frame blocks, A B A B in one process. Prints every run,
# each side's ns per frame (best and median) and how many times faster
# Varitap is. Usage: bench/paired-run.sh [BUILD_DIR] [ROUNDS]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
rounds=${2:-5}
peer=/usr/lib/vst/lsp-plugins/art-delay-stereo.so
render="$build/tools/render/varitap-render"

bench/setup.sh
[ -x "$render" ] || { echo "paired-run: build $render first (cmake --build $build)"; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Pink noise (Paul Kellet's refined filter over white noise), two channels.
python3 - "$work/pink.wav" <<'PY'
import random, struct, sys, wave
rate, seconds = 44100, 10
rng = random.Random(1)
def pink():
    b = [0.0] * 7
    while True:
        w = rng.uniform(-1.0, 1.0)
        b[0] = 0.99886 * b[0] + w * 0.0555179; b[1] = 0.99332 * b[1] + w * 0.0750759
        b[2] = 0.96900 * b[2] + w * 0.1538520; b[3] = 0.86650 * b[3] + w * 0.3104856
        b[4] = 0.55000 * b[4] + w * 0.5329522; b[5] = -0.7616 * b[5] - w * 0.0168980
        y = b[0] + b[1] + b[2] + b[3] + b[4] + b[5] + b[6] + w * 0.5362
        b[6] = w * 0.115926
        yield max(-1.0, min(1.0, y * 0.11))
left, right = pink(), pink()
with wave.open(sys.argv[1], "wb") as f:
    f.setnchannels(2); f.setsampwidth(2); f.setframerate(rate)
    frames = bytearray()
    for _ in range(rate * seconds):
        frames += struct.pack("<hh", int(next(left) * 32767), int(next(right) * 32767))
    f.writeframes(bytes(frames))
PY

args=()
while IFS= read -r line; do
  [[ -z "$line" || "$line" == "# "* ]] || args+=(--set "$line")
done < bench/varitap-worst-case.txt
while IFS= read -r line; do
  [[ -z "$line" || "$line" == "# "* ]] || args+=(--bench-set "$line")
done < bench/lsp-art-delay-ten-lines.txt

"$render" "$work/pink.wav" --block 512 --tail 0 --tempo 120 --rounds "$rounds" --bench "$peer" "${args[@]}" \
  | tee "$work/out.txt"
awk -v frames=$((44100 * 10)) '
  /^run / { a[++n] = $4; b[n] = $7 }
  function median(v, k,   s, i, j, t) { for (i = 1; i <= k; i++) s[i] = v[i];
    for (i = 1; i <= k; i++) for (j = i + 1; j <= k; j++) if (s[j] < s[i]) { t = s[i]; s[i] = s[j]; s[j] = t }
    return k % 2 ? s[(k + 1) / 2] : (s[k / 2] + s[k / 2 + 1]) / 2 }
  function best(v, k,   m, i) { m = v[1]; for (i = 2; i <= k; i++) if (v[i] < m) m = v[i]; return m }
  END {
    printf "Varitap: %.1f ns per frame best, %.1f median\n", best(a, n) * 1e6 / frames, median(a, n) * 1e6 / frames
    printf "LSP:     %.1f ns per frame best, %.1f median\n", best(b, n) * 1e6 / frames, median(b, n) * 1e6 / frames
    printf "Varitap is %.2f times faster (best against best), %.2f (median against median)\n",
      best(b, n) / best(a, n), median(b, n) / median(a, n)
  }' "$work/out.txt"
