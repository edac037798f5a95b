"""What Chromium trusts of its user's: one certificate in the store of Mozilla's library (NSS)."""
import ctypes
import ssl
from pathlib import Path

# Of nss/certdb.h: valid by itself, whoever vouches for it. What its certutil calls "P".
TRUSTED_PEER = (1 << 0) | (1 << 1)
SESSION_WITHOUT_OBJECT = 0


class Trust(ctypes.Structure):
    """CERTCertTrust."""
    _fields_ = [("tls", ctypes.c_uint), ("mail", ctypes.c_uint), ("code", ctypes.c_uint)]


def library(name, *giving_pointers):
    """ctypes takes what functions return for numbers, unless it is told."""
    loaded = ctypes.CDLL(name)
    for function in giving_pointers:
        getattr(loaded, function).restype = ctypes.c_void_p
    return loaded


def trust(home, pem):
    """Has browsers that run with this home take the certificate for its names."""
    store = Path(home) / ".pki/nssdb"
    store.mkdir(parents=True)
    nss = library("libnss3.so", "PK11_GetInternalKeySlot", "CERT_GetDefaultCertDB")
    reader = library("libsmime3.so", "CERT_DecodeCertFromPackage")
    der = ssl.PEM_cert_to_DER_cert(pem)

    def need(status):
        assert status == 0, nss.PR_GetError()

    need(nss.NSS_InitReadWrite(f"sql:{store}".encode()))
    slot = ctypes.c_void_p(nss.PK11_GetInternalKeySlot())
    need(nss.PK11_InitPin(slot, None, b""))
    certificate = ctypes.c_void_p(reader.CERT_DecodeCertFromPackage(der, len(der)))
    need(nss.PK11_ImportCert(slot, certificate, ctypes.c_ulong(SESSION_WITHOUT_OBJECT),
                             b"recorder", 0))
    need(nss.CERT_ChangeCertTrust(ctypes.c_void_p(nss.CERT_GetDefaultCertDB()), certificate,
                                  ctypes.byref(Trust(TRUSTED_PEER, 0, 0))))
    nss.CERT_DestroyCertificate(certificate)
    nss.PK11_FreeSlot(slot)
    need(nss.NSS_Shutdown())
