#!/usr/bin/python3
"""A second, independent implementation of the sealed envelope, for cross-checking.

The envelope is a JSON object of four base64 strings: "KDFNonce" (the HKDF salt),
"Ciphertext" (AES-256-GCM nonce || ciphertext || tag), "AEADNonce" (the same 12-byte
nonce) and "AdditionalData" (the decimal text of a millisecond timestamp). The key is
HKDF-SHA-256 over the X25519 shared secret, salt = the KDF nonce, info = the additional
data, 32 bytes long.

Files are exchanged in one directory:
  check                     exit 0 when the cryptography package can be imported
  keypair DIR               write python-private.txt and python-public.txt (base64 raw keys)
  seal DIR PEER_PUBLIC      seal every plaintext-NAME.bin into from-python-NAME.json
                            (making a key pair first when DIR has none)
  open DIR PEER_PUBLIC      open every from-library-NAME.json into opened-NAME.bin

Exit status: 0 all done, 1 an envelope was refused or malformed, 2 unusable set-up.
Run it with Debian's interpreter (/usr/bin/python3 -I) so that Debian's
python3-cryptography is the one used.
"""

import base64
import binascii
import json
import os
import re
import sys
import time
from pathlib import Path

try:
    from cryptography import __version__ as cryptography_version
    from cryptography.exceptions import InvalidTag
    from cryptography.hazmat.primitives import hashes, serialization
    from cryptography.hazmat.primitives.asymmetric.x25519 import X25519PrivateKey, X25519PublicKey
    from cryptography.hazmat.primitives.ciphers.aead import AESGCM
    from cryptography.hazmat.primitives.kdf.hkdf import HKDF
except ImportError as missing:
    print(f"python3-cryptography is not usable ({missing}); install Debian's python3-cryptography",
          file=sys.stderr)
    sys.exit(2)

KDF_NONCE_BYTES = 32
AEAD_NONCE_BYTES = 12
TAG_BYTES = 16
KEY_BYTES = 32
# A sealed timestamp more than this far from our clock means the other side wrote
# something other than the current time.
TIMESTAMP_SLACK_MS = 10 * 60 * 1000

BASE64 = re.compile(r"(?:[A-Za-z0-9+/]{4})*(?:[A-Za-z0-9+/]{2}==|[A-Za-z0-9+/]{3}=)?")


class Refused(Exception):
    pass


def strict_b64decode(field, text):
    """Standard alphabet, "=" padding, nothing else, and the canonical encoding."""
    if not isinstance(text, str) or not BASE64.fullmatch(text):
        raise Refused(f"{field} is not standard base64: {text!r:.80}")
    data = base64.b64decode(text, validate=True)
    if base64.b64encode(data).decode("ascii") != text:
        raise Refused(f"{field} is not the canonical base64 of its bytes")
    return data


def b64encode(data):
    return base64.b64encode(data).decode("ascii")


def raw_public(private_key):
    return private_key.public_key().public_bytes(serialization.Encoding.Raw,
                                                 serialization.PublicFormat.Raw)


def load_or_make_keypair(directory, make):
    private_path = directory / "python-private.txt"
    if private_path.exists():
        raw = strict_b64decode("python-private.txt", private_path.read_text().strip())
        return X25519PrivateKey.from_private_bytes(raw)
    if not make:
        raise SystemExit(f"no key pair in {directory}")
    key = X25519PrivateKey.generate()
    raw = key.private_bytes(serialization.Encoding.Raw, serialization.PrivateFormat.Raw,
                            serialization.NoEncryption())
    (directory / "python-public.txt").write_text(b64encode(raw_public(key)))
    private_path.write_text(b64encode(raw))
    return key


def message_key(private_key, peer_public_text, kdf_nonce, additional_data):
    peer = X25519PublicKey.from_public_bytes(strict_b64decode("peer public key", peer_public_text))
    shared = private_key.exchange(peer)
    hkdf = HKDF(algorithm=hashes.SHA256(), length=KEY_BYTES, salt=kdf_nonce,
                info=additional_data)
    return hkdf.derive(shared)


def now_ms():
    return time.time_ns() // 1_000_000


def seal(private_key, peer_public_text, plaintext):
    kdf_nonce = os.urandom(KDF_NONCE_BYTES)
    aead_nonce = os.urandom(AEAD_NONCE_BYTES)
    additional_data = str(now_ms()).encode("ascii")
    key = message_key(private_key, peer_public_text, kdf_nonce, additional_data)
    sealed = AESGCM(key).encrypt(aead_nonce, plaintext, additional_data)
    # Members in another order than the library writes them, which must not matter.
    return {
        "AdditionalData": b64encode(additional_data),
        "AEADNonce": b64encode(aead_nonce),
        "Ciphertext": b64encode(aead_nonce + sealed),
        "KDFNonce": b64encode(kdf_nonce),
    }


def open_envelope(private_key, peer_public_text, text):
    try:
        envelope = json.loads(text)
    except (ValueError, UnicodeDecodeError) as error:
        raise Refused(f"not JSON: {error}") from None
    if not isinstance(envelope, dict):
        raise Refused("not a JSON object")
    fields = {}
    for name in ("KDFNonce", "Ciphertext", "AEADNonce", "AdditionalData"):
        if name not in envelope:
            raise Refused(f"{name} is missing")
        fields[name] = strict_b64decode(name, envelope[name])

    kdf_nonce = fields["KDFNonce"]
    combined = fields["Ciphertext"]
    additional_data = fields["AdditionalData"]
    if len(kdf_nonce) != KDF_NONCE_BYTES:
        raise Refused(f"KDFNonce has {len(kdf_nonce)} bytes")
    if len(combined) < AEAD_NONCE_BYTES + TAG_BYTES:
        raise Refused(f"Ciphertext has only {len(combined)} bytes")
    if fields["AEADNonce"] != combined[:AEAD_NONCE_BYTES]:
        raise Refused("AEADNonce is not the nonce the ciphertext starts with")
    if not re.fullmatch(rb"-?[0-9]+", additional_data):
        raise Refused(f"AdditionalData is not a decimal timestamp: {additional_data!r:.40}")
    if abs(int(additional_data) - now_ms()) > TIMESTAMP_SLACK_MS:
        raise Refused(f"AdditionalData {additional_data.decode()} is not the current time")

    key = message_key(private_key, peer_public_text, kdf_nonce, additional_data)
    try:
        return AESGCM(key).decrypt(combined[:AEAD_NONCE_BYTES], combined[AEAD_NONCE_BYTES:],
                                   additional_data)
    except InvalidTag:
        raise Refused("authentication failed") from None


def name_of(path, prefix):
    return path.name[len(prefix):].rsplit(".", 1)[0]


def command_seal(directory, peer_public_text):
    private_key = load_or_make_keypair(directory, make=True)
    plaintexts = sorted(directory.glob("plaintext-*.bin"))
    for path in plaintexts:
        envelope = seal(private_key, peer_public_text, path.read_bytes())
        target = directory / f"from-python-{name_of(path, 'plaintext-')}.json"
        target.write_text(json.dumps(envelope))
    print(f"sealed {len(plaintexts)} plaintexts")
    return 0


def command_open(directory, peer_public_text):
    private_key = load_or_make_keypair(directory, make=False)
    refused = 0
    envelopes = sorted(directory.glob("from-library-*.json"))
    for path in envelopes:
        try:
            plaintext = open_envelope(private_key, peer_public_text, path.read_bytes())
        except Refused as reason:
            refused += 1
            print(f"refused {path.name}: {reason}")
            continue
        (directory / f"opened-{name_of(path, 'from-library-')}.bin").write_bytes(plaintext)
        print(f"opened {path.name}: {len(plaintext)} bytes")
    if not envelopes:
        print("no envelopes to open")
        return 1
    return 1 if refused else 0


def main(argv):
    if len(argv) == 2 and argv[1] == "check":
        print(f"python3-cryptography {cryptography_version} at {sys.executable}")
        return 0
    if len(argv) == 3 and argv[1] == "keypair":
        load_or_make_keypair(Path(argv[2]), make=True)
        return 0
    if len(argv) == 4 and argv[1] in ("seal", "open"):
        command = command_seal if argv[1] == "seal" else command_open
        try:
            return command(Path(argv[2]), argv[3])
        except (Refused, binascii.Error, ValueError) as error:
            print(f"cannot {argv[1]}: {error}", file=sys.stderr)
            return 2
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
