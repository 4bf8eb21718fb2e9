#!/usr/bin/python3
"""Computes the fixed vectors of test_secret_cipher.cpp with an independent implementation (python3-cryptography).

Run: /usr/bin/python3 tests/platform/secret_vectors.py
"""
import base64
import hashlib
import hmac

from cryptography.hazmat.primitives import hashes, padding
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.hazmat.primitives.ciphers.aead import AESGCM
from cryptography.hazmat.primitives.kdf.hkdf import HKDF

SESSION_KEY = b"q83vEjRWeJq83vEjRWeJq83vEjRWeJq83vEjRWeJq80="
PLAIN = b"Dev#Pass-2026"
IV = bytes(range(16))
NONCE = bytes(range(0xA0, 0xAC))


def legacy(key, plain, iv):
    enc_key = hashlib.sha256(b"TalSecret.legacy.enc" + key).digest()[:16]
    mac_key = hashlib.sha256(b"TalSecret.legacy.mac" + key).digest()
    padder = padding.PKCS7(128).padder()
    padded = padder.update(plain) + padder.finalize()
    enc = Cipher(algorithms.AES(enc_key), modes.CBC(iv)).encryptor()
    body = iv + enc.update(padded) + enc.finalize()
    tag = hmac.new(mac_key, body, hashlib.sha256).digest()[:16]
    return base64.b64encode(body + tag).decode()


def sensitive(key, plain, nonce):
    aes_key = HKDF(algorithm=hashes.SHA256(), length=32, salt=b"TalSecret.sensitive", info=b"aes-256-gcm").derive(key)
    version = b"\x01"
    return base64.b64encode(version + nonce + AESGCM(aes_key).encrypt(nonce, plain, version)).decode()


print("legacy   ", legacy(SESSION_KEY, PLAIN, IV))
print("legacy0  ", legacy(SESSION_KEY, b"", IV))
print("sensitive", sensitive(SESSION_KEY, PLAIN, NONCE))
print("sensitive0", sensitive(SESSION_KEY, b"", NONCE))
