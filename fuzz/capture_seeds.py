#!/usr/bin/env python3
"""Seeds for the fuzz targets from real exchanges: runs a command (an
end-to-end test binary) under strace, reads every buffer the processes
received, and keeps the ones that are whole messages of a kind a target
reads: property-list frames (4-byte big-endian length + binary or XML plist)
and worker frames ("kCommand" header). Usage:
  fuzz/capture_seeds.py OUT_DIR -- COMMAND [ARGS...]
Writes OUT_DIR/plist/<digest> (the plist without its length) and
OUT_DIR/frames/<digest> (one worker frame each)."""
import hashlib, os, re, subprocess, sys, tempfile

CALL = re.compile(r'^\d+\s+(?:read|recvfrom|recv)\(\d+, "((?:[^"\\]|\\.)*)"')

def unescape(text):
    out = bytearray()
    i = 0
    while i < len(text):
        c = text[i]
        if c == '\\' and i + 1 < len(text):
            n = text[i + 1]
            if n == 'x':
                out.append(int(text[i + 2:i + 4], 16)); i += 4; continue
            simple = {'n': 10, 't': 9, 'r': 13, 'v': 11, 'f': 12, '\\': 92, '"': 34}
            if n in simple:
                out.append(simple[n]); i += 2; continue
        out.append(ord(c)); i += 1
    return bytes(out)

def plist_frames(data):
    # A reader that takes the length first gets the body in a read of its own.
    if data.startswith(b'bplist00') or data.startswith(b'<?xml'):
        yield data
        return
    at = 0
    while at + 4 <= len(data):
        length = int.from_bytes(data[at:at + 4], 'big')
        body = data[at + 4:at + 4 + length]
        if length == 0 or len(body) != length or not (body.startswith(b'bplist00') or body.startswith(b'<?xml')):
            return
        yield body
        at += 4 + length

def worker_frames(data):
    at = 0
    while data.startswith(b'kCommand', at) and at + 36 <= len(data):
        length = int.from_bytes(data[at + 28:at + 36], 'little')
        if at + 36 + length > len(data):
            return
        yield data[at:at + 36 + length]
        at += 36 + length

def keep(folder, blob):
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, hashlib.sha1(blob).hexdigest()[:16]), 'wb') as f:
        f.write(blob)

def main():
    if len(sys.argv) < 4 or sys.argv[2] != '--':
        sys.exit(__doc__)
    out, command = sys.argv[1], sys.argv[3:]
    with tempfile.NamedTemporaryFile(prefix='zeb-capture-', suffix='.trace') as trace:
        subprocess.run(['strace', '-f', '-qq', '-e', 'trace=read,recvfrom,recv', '-xx', '-s', '70000',
                        '-o', trace.name] + command, check=False)
        counts = {'plist': 0, 'frames': 0}
        for line in open(trace.name, errors='replace'):
            match = CALL.match(line)
            if not match:
                continue
            data = unescape(match.group(1))
            for body in plist_frames(data):
                keep(os.path.join(out, 'plist'), body); counts['plist'] += 1
            for frame in worker_frames(data):
                if len(frame) <= 65536:
                    keep(os.path.join(out, 'frames'), frame); counts['frames'] += 1
        print('captured', counts)

main()
