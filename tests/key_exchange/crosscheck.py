#!/usr/bin/python3
"""A second, independent implementation of the sealed envelope, for cross-checking.

The envelope is JSON of four base64 strings: "KDFNonce" (the HKDF salt), "Ciphertext"
(AES-256-GCM nonce || ciphertext || tag), "AEADNonce" (that nonce) and "AdditionalData" (a
millisecond timestamp in decimal, also the HKDF info). The key is HKDF-SHA-256 of the X25519
shared secret. Usage: `keypair DIR` (our public key into DIR/python-public.txt),
or `exchange DIR PEER_PUBLIC`: seal each DIR/plaintext-NAME.bin into from-python-NAME.json,
open each from-library-NAME.json into opened-NAME.bin, and exit 1 if one was refused.
"""

import base64
import json
import os
import sys
import time
from pathlib import Path

try:
    from cryptography.exceptions import InvalidTag
    from cryptography.hazmat.primitives import hashes, serialization
    from cryptography.hazmat.primitives.asymmetric.x25519 import X25519PrivateKey, X25519PublicKey
    from cryptography.hazmat.primitives.ciphers.aead import AESGCM
    from cryptography.hazmat.primitives.kdf.hkdf import HKDF
except ImportError as missing:
    sys.exit(f"python3-cryptography is not usable ({missing}); install Debian's package")


def b64(data):
    return base64.b64encode(data).decode("ascii")


def strict_unb64(text):
    data = base64.b64decode(text, validate=True)
    if b64(data) != text:
        raise ValueError(f"not canonical base64: {text!r:.40}")
    return data


def key_pair(directory):
    private_path = directory / "python-private.bin"
    if not private_path.exists():
        private_path.write_bytes(os.urandom(32))
    key = X25519PrivateKey.from_private_bytes(private_path.read_bytes())
    raw = serialization.Encoding.Raw, serialization.PublicFormat.Raw
    (directory / "python-public.txt").write_text(b64(key.public_key().public_bytes(*raw)))
    return key


def message_key(private_key, peer_public, kdf_nonce, additional_data):
    shared = private_key.exchange(X25519PublicKey.from_public_bytes(strict_unb64(peer_public)))
    return HKDF(hashes.SHA256(), 32, kdf_nonce, additional_data).derive(shared)


def seal(private_key, peer_public, plaintext):
    kdf_nonce, nonce = os.urandom(32), os.urandom(12)
    additional_data = str(time.time_ns() // 1_000_000).encode("ascii")
    key = message_key(private_key, peer_public, kdf_nonce, additional_data)
    sealed = AESGCM(key).encrypt(nonce, plaintext, additional_data)
    # Members in another order than the library writes them, which must not matter.
    return {"AdditionalData": b64(additional_data), "AEADNonce": b64(nonce),
            "Ciphertext": b64(nonce + sealed), "KDFNonce": b64(kdf_nonce)}


def open_envelope(private_key, peer_public, envelope):
    kdf_nonce, combined, nonce, additional_data = (
        strict_unb64(envelope[name])
        for name in ("KDFNonce", "Ciphertext", "AEADNonce", "AdditionalData"))
    if len(kdf_nonce) != 32 or len(nonce) != 12 or combined[:12] != nonce:
        raise ValueError("nonces of the wrong size, or two different AEAD nonces")
    if not additional_data.isdigit() or \
            abs(int(additional_data) - time.time_ns() // 1_000_000) > 10 * 60 * 1000:
        raise ValueError(f"AdditionalData {additional_data!r:.40} is not within 10 min of now")
    key = message_key(private_key, peer_public, kdf_nonce, additional_data)
    return AESGCM(key).decrypt(nonce, combined[12:], additional_data)


def main(command, directory=None, peer_public=None):
    if command not in ("keypair", "exchange"):
        sys.exit(__doc__)
    directory = Path(directory)
    private_key = key_pair(directory)
    refused = 0
    for path in sorted(directory.glob("plaintext-*.bin")):
        envelope = seal(private_key, peer_public, path.read_bytes())
        target = directory / f"from-python-{path.stem.removeprefix('plaintext-')}.json"
        target.write_text(json.dumps(envelope))
    for path in sorted(directory.glob("from-library-*.json")):
        try:
            plaintext = open_envelope(private_key, peer_public, json.loads(path.read_bytes()))
        except (ValueError, KeyError, InvalidTag) as error:
            print(f"refused {path.name}: {error!r}")
            refused += 1
        else:
            target = directory / f"opened-{path.stem.removeprefix('from-library-')}.bin"
            target.write_bytes(plaintext)
    return 1 if refused else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
