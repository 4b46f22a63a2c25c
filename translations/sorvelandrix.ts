<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1">
<context>
    <name>ActiveMeetingRow</name>
    <message>
        <source>Joining</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>In the waiting room</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>In the meeting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Meeting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>View live transcript</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop meeting bot</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ConfirmSheet</name>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ConsentSheet</name>
    <message>
        <source>Before you record</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A quick recording-consent check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I understand and accept these obligations.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remind me before every recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Read our Recording Consent terms</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I Agree, Start Recording</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>FloatingTranscriptPanel</name>
    <message>
        <source>Live Transcript</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>FloatingTranscriptView</name>
    <message>
        <source>Live Transcript</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Disconnected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close transcript</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waiting for speech...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting to meeting...</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>JoinMeetingView</name>
    <message>
        <source>Join a Meeting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Paste a Google Meet, Zoom, Teams, or Webex link
to start recording and transcribing.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>MEETING LINK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Joining...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Join &amp; Record</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bot sent! Switching to Meetings tab...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Supported platforms:</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>LoginView</name>
    <message>
        <source>SorvelandrixRecorder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connect to your Sorvelandrix account</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>EMAIL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PASSWORD</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Password</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Hide password</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show password</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Signing in...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign In</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign in with Passkey</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Verify it&apos;s you</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Enter the 6-digit code we sent to </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Verification code</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Verifying…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Verify and sign in</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Use a different account</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Main</name>
    <message>
        <source>Sorvelandrix</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MainTabView</name>
    <message>
        <source>Sorvelandrix</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>REC</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>VIDEO</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>User menu</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 tab</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Manage Passkeys</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign Out</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign out during the upload?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The recording is still being uploaded. Signing out stops the upload; the recording stays on this computer so you can retry it after signing in again.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PasskeyPrompts</name>
    <message>
        <source>Enter your security key&apos;s PIN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The key allows %1 more attempts before it locks.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The key asks for its PIN before it signs.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PIN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Security key PIN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Continue</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Touch your security key…</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PasskeysSheet</name>
    <message>
        <source>Passkeys</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign in without a password using your security key.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Close passkeys</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Couldn&apos;t load your passkeys</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Retry</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No passkeys yet</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Add your first passkey to skip the password next time.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Add a passkey</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remove this passkey?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You won&apos;t be able to use this passkey to sign in. You can always add another one later.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remove</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>RecorderView</name>
    <message>
        <source>Recording mode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Audio only</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Video call</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Records your screen plus mic and call audio — best for WhatsApp, Zoom, and Teams.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Records microphone and system audio only (no screen video).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Use headphones if you hear echo — speakers let the mic pick up the call twice.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Needs screen-sharing permission on Wayland desktops. After allowing, quit (Ctrl+Q) and reopen once.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Capture source</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Choose which display, app, or window to record.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Microphone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refresh device list</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>System Audio</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>During WhatsApp/Zoom calls, watch the Microphone meter — if it stays flat while you speak, your voice may not be recorded until the call ends.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Microphone is silent</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mic only — system audio unavailable</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Retry</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open Settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I fixed it — check again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save this recording?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save &amp; Upload</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Save and upload recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Discard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Discard recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uploading to Sorvelandrix...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uploaded successfully</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>View Recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Record Another</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Retry upload</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start over</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Try Again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waiting for the sound server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The sound server is back — recording resumed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing is recorded until it answers again; the recording goes on by itself then.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Discard this recording?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The recording is deleted from this computer and cannot be recovered.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>RecordingRow</name>
    <message>
        <source>Batch · 1 part</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Batch · %1 parts</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>RecordingsView</name>
    <message>
        <source>Your recordings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refresh</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Couldn&apos;t load your recordings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Retry</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No recordings yet</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recordings made on the web or with the recorder in your tray will show up here.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>ACTIVE BOTS</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>RECORDINGS</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>StatusDisplay</name>
    <message>
        <source>Sorvelandrix — RECORDING (%1)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sorvelandrix — RECORDING</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sorvelandrix — processing…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sorvelandrix — processing</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sorvelandrix — idle</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TranscriptSection</name>
    <message>
        <source>Hide Live Transcript</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show Live Transcript</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>On-device preview</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Server (diarized)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Transcription language:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Live shows the original language with speaker labels. English translation is available on the website after you upload.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting to server…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Listening...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Retry server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Use on-device preview</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waiting for speech...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Collapse</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Expand</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Use a shorter transcript panel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show more lines of live transcript</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>UpdateAlert</name>
    <message>
        <source>Checking for Updates</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>main</name>
    <message>
        <source>Records meetings and calls on this computer.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Use this service origin for this run (also SORVELANDRIX_SERVER).</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::AppDelegate</name>
    <message>
        <source>Open Sorvelandrix</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open Dashboard in Browser</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for Updates…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit Sorvelandrix</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::InputDeviceModel</name>
    <message>
        <source>%1 (default)</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::RecorderScreen</name>
    <message>
        <source>Tap to record video call</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Tap to start recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Preparing...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stopping...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording stopped</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Uploading... %1%</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording uploaded!</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::RecordingConsent</name>
    <message>
        <source>You must inform all people whose voices you will record. A spoken disclosure at the start of the recording is the safest practice.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>In some jurisdictions — California (CIPA), Illinois, Maryland, Massachusetts, Florida, the EU and the UK — the law requires consent from EVERY participant, not just one party.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Voice biometric processing (speaker identification) is opt-in; for users in Illinois it is blocked by default under BIPA.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You confirm that you have the authority to make this recording on the device, network, or premises where you are recording.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I understand that the screen video will record everything visible on my main display — including private messages, browser tabs, and other open apps — and I have closed anything I don&apos;t want captured.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Before you record</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A quick recording-consent check</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording other people’s voices is regulated. Before Sorvelandrix starts capturing audio on this device, please confirm that you understand and accept the following obligations.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>If you’re in a one-party-consent state and recording your own meeting, your own consent is enough — but the safest habit is still to tell everyone the bot is on.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I understand and accept these obligations.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remind me before every recording</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Read our Recording Consent terms</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>I Agree, Start Recording</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::ScreenCaptureTargetModel</name>
    <message>
        <source>Displays</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Applications</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Windows</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::SpeechLanguageModel</name>
    <message>
        <source>Italian</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>English (US)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>English (UK)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Afrikaans</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Dutch</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>German</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>French</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Portuguese</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Spanish</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>isiZulu</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>sorv::TranscriptListModel</name>
    <message>
        <source>%1 said: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Waiting for speech...</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
