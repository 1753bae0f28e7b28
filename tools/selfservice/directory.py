"""The users the server knows, the tokens it has given out, and the agent's identity."""

import json
import secrets
import threading

from . import codes

# The secret of the demonstration user, as an authenticator app takes it.
DEMO_SECRET = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP"

DEFAULT_USERS = {
    "alice@EXAMPLE": {
        "secret": DEMO_SECRET,
        "policy": {
            "MFA_NO_OF_FACTORS": 1,
            "ENABLED_AUTHS": [3],
            "MANDATORY_AUTHS": [],
            "OFFLINE_MFA_LIMIT_TYPE": 2,
            "OFFLINE_MFA_LIMIT_VALUE": 10,
        },
        "authenticators": {"3": {"name": "Authenticator app", "secret": DEMO_SECRET}},
    }
}


def load_users(path):
    """The users of a JSON file in the form of DEFAULT_USERS, or the demonstration user."""
    if path is None:
        return DEFAULT_USERS
    with open(path, encoding="utf-8") as file:
        return json.load(file)


class Directory:
    """Users by full name ("name@DOMAIN"), and what has happened to them in this run."""

    def __init__(self, users, tokens=None):
        self.users = users
        self._tokens = dict(tokens or {})
        self._failures = {}
        self._lock = threading.Lock()

    def full_name(self, name, domain=""):
        """The user's full name: given so, with a domain beside it, or the first user."""
        if name and domain:
            return f"{name}@{domain}"
        return name or next(iter(self.users), "")

    def check_code(self, user, typed):
        """True or False, or None when the user has failed three times in a row."""
        record = self.users.get(user)
        matches = record is not None and codes.code_matches(record["secret"], typed)
        with self._lock:
            self._failures[user] = 0 if matches else self._failures.get(user, 0) + 1
            if self._failures[user] >= 3:
                self._failures[user] = 0
                return None
        return matches

    def new_token(self, user):
        """A token with which the user's offline data may be fetched."""
        token = secrets.token_hex(16)
        with self._lock:
            self._tokens[token] = user
        return token

    def user_of_token(self, token):
        with self._lock:
            return self._tokens.get(token)

    def enroll(self, user):
        self.users[user]["enrolled"] = True

    def enrolled_users(self):
        return [name for name, record in self.users.items() if record.get("enrolled", True)]

    def offline_data(self, user, access_key):
        """What the agent keeps of a user; the secrets are encrypted under its access key."""
        record = self.users[user]
        enrollment = {}
        for identifier, item in record.get("authenticators", {}).items():
            enrollment[identifier] = {
                "AUTH_DISPLAY_NAME": item.get("name", "Authenticator app"),
                "SECRET_KEY": codes.encrypt(item["secret"], access_key),
                "ALGORITHM_TYPE": item.get("algorithm", "SHA1"),
                "EXPIRY_TIME": item.get("step", 30),
                "DIGITS": item.get("digits", 6),
                "AUTH_VARIANCE": item.get("variance", 1),
            }
            if "serial" in item:
                enrollment[identifier]["HARDWARE_TOKEN_SERIAL_NUMBER"] = item["serial"]
        user_data = {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS": 0, "LAST_ONLINE_MFA_TIME": 0}
        user_data.update(record.get("counters", {}))
        user_data["AUTH_ENROLLMENT"] = enrollment
        return {"USER_NAME": user, "POLICY_DATA": record["policy"], "USER_DATA": user_data}


class AgentIdentity:
    """The keys by which an agent is known: the one-time one, and its own."""

    def __init__(self, installation_key, agent_id, access_key, value_key, encrypted_key=None):
        self.installation_key = installation_key
        self.agent_id = agent_id
        self.access_key = access_key or secrets.token_hex(32)
        self.encrypted_key = encrypted_key or codes.encrypt(self.access_key, value_key)
