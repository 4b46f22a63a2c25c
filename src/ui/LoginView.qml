import QtQuick
import QtQuick.Controls
import QtQuick.Layouts
import Sorvelandrix.Ui

// Sign-in: e-mail and password, then the e-mail code when the account asks
// for one; or a passkey.
Item {
    id: root
    required property AuthManager auth
    required property ViewHelpers helpers
    property PasskeyOperations passkeyOps: null
    property var passkeyManager: null

    property bool showPassword: false
    readonly property string trimmedEmail: email.text.trim()
    readonly property bool challengePending: auth.pendingMfaChallengeId !== ""

    function signIn() {
        if (trimmedEmail === "" || password.text === "" || auth.isLoggingIn)
            return
        auth.login(trimmedEmail, password.text)
    }
    function verify() {
        if (code.text.length !== 6 || auth.isLoggingIn)
            return
        auth.verifyMfa(code.text)
    }

    Flickable {
        anchors.fill: parent
        contentHeight: column.implicitHeight + 64
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        ColumnLayout {
            id: column
            width: Math.min(root.width - 64, 380)
            x: (root.width - width) / 2
            y: 40
            spacing: Theme.spacing

            Symbol {
                Layout.alignment: Qt.AlignHCenter
                name: root.challengePending ? "lock-shield" : "waveform-circle"
                tint: root.challengePending ? Theme.accent : Theme.red
                size: 52
            }

            // The form.
            ColumnLayout {
                visible: !root.challengePending
                Layout.fillWidth: true
                spacing: Theme.spacing

                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: qsTr("SorvelandrixRecorder")
                    font.pixelSize: Theme.titleSize + 2
                    font.weight: Font.Bold
                    color: Theme.text
                }
                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: qsTr("Connect to your Sorvelandrix account")
                    color: Theme.secondaryText
                    font.pixelSize: Theme.bodySize + 1
                }

                Rectangle {
                    objectName: "sessionExpiredBanner"
                    visible: root.auth.sessionExpiredBanner !== ""
                    Layout.fillWidth: true
                    implicitHeight: bannerRow.implicitHeight + 20
                    radius: 8
                    color: Theme.warningBackground
                    RowLayout {
                        id: bannerRow
                        anchors.fill: parent
                        anchors.margins: 10
                        spacing: 8
                        Symbol {
                            name: "clock-alert"
                            tint: Theme.orange
                            size: 18
                            Layout.alignment: Qt.AlignTop
                        }
                        Label {
                            Layout.fillWidth: true
                            text: root.auth.sessionExpiredBanner
                            wrapMode: Text.Wrap
                            color: Theme.text
                            font.pixelSize: Theme.bodySize
                        }
                    }
                }

                FieldBox {
                    id: emailBox
                    Layout.fillWidth: true
                    Layout.topMargin: 6
                    label: qsTr("EMAIL")
                    symbol: "envelope"
                    placeholderText: "you@example.com"
                    fieldObjectName: "emailField"
                    inputMethodHints: Qt.ImhEmailCharactersOnly | Qt.ImhNoAutoUppercase
                    onAccepted: root.password.forceActiveFocus()
                }
                FieldBox {
                    id: passwordBox
                    Layout.fillWidth: true
                    label: qsTr("PASSWORD")
                    symbol: "lock"
                    placeholderText: qsTr("Password")
                    fieldObjectName: "passwordField"
                    echoMode: root.showPassword ? TextInput.Normal : TextInput.Password
                    onAccepted: root.signIn()
                    ToolButton {
                        objectName: "showPasswordButton"
                        width: 28
                        height: 28
                        id: eyeButton
                        focusPolicy: Qt.StrongFocus
                        Accessible.name: root.showPassword ? qsTr("Hide password") : qsTr("Show password")
                        onClicked: root.showPassword = !root.showPassword
                        contentItem: Symbol {
                            name: root.showPassword ? "eye-slash" : "eye"
                            tint: Theme.secondaryText
                            size: 16
                        }
                        background: Rectangle {
                            radius: 6
                            color: "transparent"
                            border.color: eyeButton.visualFocus ? Theme.focus : "transparent"
                            border.width: 2
                        }
                    }
                }

                PrimaryButton {
                    objectName: "signInButton"
                    Layout.topMargin: 4
                    text: root.auth.isLoggingIn ? qsTr("Signing in...") : qsTr("Sign In")
                    enabled: root.trimmedEmail !== "" && root.password.text !== ""
                             && !root.auth.isLoggingIn
                    onClicked: root.signIn()
                }

                ErrorLine {
                    objectName: "loginError"
                    Layout.fillWidth: true
                    text: root.auth.loginError
                }

                SecondaryButton {
                    objectName: "passkeyButton"
                    Layout.fillWidth: true
                    implicitHeight: 36
                    enabled: !root.auth.isLoggingIn && root.passkeyOps !== null
                    text: qsTr("Sign in with Passkey")
                    Accessible.name: text
                    symbol: "person-key"
                    onClicked: root.passkeyOps.loginWithPasskey(root.trimmedEmail)
                }
            }

            // The code step.
            ColumnLayout {
                visible: root.challengePending
                Layout.fillWidth: true
                spacing: Theme.spacing

                Label {
                    Layout.alignment: Qt.AlignHCenter
                    text: qsTr("Verify it's you")
                    font.pixelSize: Theme.titleSize + 2
                    font.weight: Font.Bold
                    color: Theme.text
                }
                Label {
                    objectName: "codeExplanation"
                    Layout.fillWidth: true
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.Wrap
                    text: qsTr("Enter the 6-digit code we sent to ")
                          + (root.auth.pendingMfaMaskedEmail !== "" ? root.auth.pendingMfaMaskedEmail
                                                                     : "your email")
                    color: Theme.secondaryText
                    font.pixelSize: Theme.bodySize + 1
                }
                TextField {
                    id: code
                    objectName: "codeField"
                    Layout.alignment: Qt.AlignHCenter
                    Layout.preferredWidth: 200
                    horizontalAlignment: TextInput.AlignHCenter
                    placeholderText: "123456"
                    font.pixelSize: 24
                    font.letterSpacing: 6
                    font.family: "monospace"
                    inputMethodHints: Qt.ImhDigitsOnly
                    Accessible.name: qsTr("Verification code")
                    // Whatever is typed or pasted, only the first six digits stay.
                    onTextChanged: {
                        const digits = root.helpers.mfaDigits(text)
                        if (digits !== text)
                            text = digits
                    }
                    onAccepted: root.verify()
                }
                PrimaryButton {
                    objectName: "verifyButton"
                    text: root.auth.isLoggingIn ? qsTr("Verifying…") : qsTr("Verify and sign in")
                    enabled: code.text.length === 6 && !root.auth.isLoggingIn
                    onClicked: root.verify()
                }
                ErrorLine {
                    Layout.fillWidth: true
                    text: root.auth.loginError
                }
                SecondaryButton {
                    objectName: "differentAccountButton"
                    Layout.alignment: Qt.AlignHCenter
                    plain: true
                    text: qsTr("Use a different account")
                    Accessible.name: text
                    onClicked: {
                        root.auth.cancelMfa()
                        code.text = ""
                    }
                }
            }
        }
    }

    // These bindings stay at the root so the aliases above can see them.
    property alias email: emailBox.field
    property alias password: passwordBox.field

    onChallengePendingChanged: if (challengePending) code.forceActiveFocus()
    Component.onCompleted: email.forceActiveFocus()

    PasskeyPrompts {
        passkeyManager: root.passkeyManager
    }
}
