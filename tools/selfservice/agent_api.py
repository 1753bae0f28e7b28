"""The endpoints that the agent itself calls, all signed."""

from .messages import json_reply

PREFIX = "/RestAPI/logonagent"


def refusal(reason):
    return json_reply({"result": "failure", "INTERNAL_ERROR": reason}, 401)


class AgentApi:
    def __init__(self, identity, directory, signatures):
        self._identity = identity
        self._directory = directory
        self._signatures = signatures

    def routes(self):
        return {
            f"{PREFIX}/getAccessKey": self._signed_by_installation_key(self.get_access_key),
            f"{PREFIX}/updateStatus": self._signed_by_agent(self.update_status),
            f"{PREFIX}/mfa/getOfflineEnrollment": self._signed_by_agent(self.get_enrollment),
            f"{PREFIX}/mfa/addOfflineEnrollment": self._signed_by_agent(self.add_enrollment),
        }

    def _signed(self, key, agent_id, endpoint):
        def checked(request):
            fault = self._signatures.fault_of(request, key, agent_id)
            return refusal(fault) if fault else endpoint(request)
        return checked

    def _signed_by_installation_key(self, endpoint):
        return self._signed(self._identity.installation_key, "MAC", endpoint)

    def _signed_by_agent(self, endpoint):
        return self._signed(self._identity.access_key, self._identity.agent_id, endpoint)

    def get_access_key(self, _request):
        return json_reply({"result": "success", "agent_props": {
            "agent_access_key": self._identity.encrypted_key,
            "agent_id": self._identity.agent_id,
        }})

    def update_status(self, request):
        if request.form().get("status") not in ("install", "uninstall"):
            return json_reply({"result": "failure", "INTERNAL_ERROR": "unknown status"}, 400)
        return json_reply({"result": "success"})

    def get_enrollment(self, request):
        token = request.form().get("DATA_ACCESS_TOKEN")
        reply = {"ENROLLED_USERS_LIST": self._directory.enrolled_users()}
        if token is not None:
            user = self._directory.user_of_token(token)
            if user in self._directory.enrolled_users():
                reply["OFFLINE_MFA_DATA"] = self._directory.offline_data(
                    user, self._identity.access_key)
            else:
                reply["INTERNAL_ERROR"] = "the token names no enrolled user"
        return json_reply(reply)

    def add_enrollment(self, request):
        user = self._directory.user_of_token(request.form().get("DATA_ACCESS_TOKEN"))
        if user not in self._directory.users:
            return json_reply({"result": "failure", "INTERNAL_ERROR": "unknown token"}, 400)
        self._directory.enroll(user)
        return json_reply({"result": "success"})
