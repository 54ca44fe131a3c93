#!/usr/bin/env python3
"""Seeds for the fuzz targets from real exchanges: runs a command (an
end-to-end test binary) under strace, reads every buffer the processes
received, and keeps the ones that are whole messages of a kind a target
reads: property-list frames (4-byte big-endian length + binary or XML plist)
and worker frames ("kCommand" header). Usage:
  fuzz/capture_seeds.py OUT_DIR -- COMMAND [ARGS...]
Writes OUT_DIR/plist/<digest> (the plist without its length),
OUT_DIR/frames/<digest> (one worker frame each), OUT_DIR/reassembler/<digest>
(a read-size byte and a run of frames as one peer sent them) and
OUT_DIR/pieces/<digest> (the JSON of file transfers: piece infos and
requests, upload and download descriptions)."""
import hashlib, json, os, re, subprocess, sys, tempfile, zlib

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

def transfer_texts(frame):
    # version NUL envelope NUL tail: the piece info rides in the envelope's
    # "info", descriptions and requests in the (deflated) tail.
    parts = frame[36:].split(b'\0', 2)
    if len(parts) < 2:
        return
    try:
        envelope = json.loads(parts[1])
    except ValueError:
        return
    if isinstance(envelope, dict) and isinstance(envelope.get('info'), dict):
        yield json.dumps(envelope['info'], separators=(',', ':')).encode()
    if len(parts) == 3 and parts[2]:
        try:
            tail = zlib.decompress(parts[2])
        except zlib.error:
            return
        if tail.startswith(b'{') and (b'"offset' in tail or b'"fbs"' in tail):
            yield tail

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
        counts = {'plist': 0, 'frames': 0, 'reassembler': 0, 'pieces': 0}
        for line in open(trace.name, errors='replace'):
            match = CALL.match(line)
            if not match:
                continue
            data = unescape(match.group(1))
            for body in plist_frames(data):
                keep(os.path.join(out, 'plist'), body); counts['plist'] += 1
            frames = [frame for frame in worker_frames(data) if len(frame) <= 65536]
            for frame in frames:
                keep(os.path.join(out, 'frames'), frame); counts['frames'] += 1
                for text in transfer_texts(frame):
                    keep(os.path.join(out, 'pieces'), text); counts['pieces'] += 1
            if frames:
                # The reassembler's target takes its read size from the first byte.
                run = bytes([len(data) % 64]) + b''.join(frames)
                keep(os.path.join(out, 'reassembler'), run); counts['reassembler'] += 1
        print('captured', counts)

main()
