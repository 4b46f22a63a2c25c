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
    <name>ApiClient</name>
    <message>
        <source>Fetch meetings error: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ApiError</name>
    <message>
        <source>HTTP %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Invalid URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No response from server</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>AudioEngine</name>
    <message>
        <source>The sound server refused to let Sorvelandrix Recorder record what the computer plays. Allow it in your desktop&apos;s privacy settings, then press Retry.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No sound server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not read the sound server&apos;s configuration: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No sound output device to capture system audio from</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The sound output %1 has no monitor to capture system audio from</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>System audio capture stopped</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PulseAudio thread did not start</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>AudioRecorder</name>
    <message>
        <source>Microphone access denied. Allow Sorvelandrix Recorder to use the microphone in your desktop&apos;s privacy settings, then try again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording file is no longer available — please record again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign in first, then tap Retry upload.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The selected microphone</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Video recording failed to start: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Video stop failed: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not create the recordings folder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The recording file could not be created: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The video file could not be created: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No free name for a recording in %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>AuthManager</name>
    <message>
        <source>Not signed in to %1 (the saved sign-in is for %2)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Invalid server URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No response from server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Too many failed attempts. Try again in %1s.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Login failed (HTTP %1)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Verification failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Invalid response from server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The sign-in could not be kept. %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HTTP %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not signed in.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not confirm the session with the service: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bad server URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Signed out</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your session expired — please sign in again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Server returned HTTP %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your session expired. Sign in again to continue.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your saved sign-in is out of date. Sign in again to upload recordings.</source>
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
    <name>Fido2Authenticator</name>
    <message>
        <source>PIN invalid</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PIN blocked: the security key has to be reset</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>too many wrong PINs: unplug the security key and plug it in again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key has no PIN yet</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the PIN does not meet the security key&apos;s rules</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key needs its PIN</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>operation timed out</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>this security key holds no passkey for this account</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>this security key is already registered</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key has no room for another passkey</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key does not support ES256 keys</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key&apos;s built-in verification is blocked</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key did not recognise you</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>lost contact with the security key</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>cannot open the security key (%1)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>invalid credential request</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key returned an incomplete credential</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>invalid sign-in request</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>invalid credential id</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the security key returned an incomplete answer</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>PIN blocked</source>
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
    <name>LiveAudioStreamer</name>
    <message>
        <source>Invalid WebSocket URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>closed by the service with code %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>no answer from the service in %1 s</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the service is not taking the audio</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>no answer to the keepalive ping</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the service sends faster than it can be shown</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Authentication expired, refreshing…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connection lost (%1), reconnecting in %2s…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Authentication failed</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>LiveTranscriptManager</name>
    <message>
        <source>Unknown error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HTTP %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Invalid URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>no content type</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not an event stream: the answer was %1 (HTTP 200)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connection closed mid-stream</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>LocalTranscriptManager</name>
    <message>
        <source>Live preview only: on-device recognition does not have “%1” on this computer. Install its speech model, or pick another language above. Your recording still uploads for full server transcription and speaker diarization when you stop.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You</source>
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
    <name>MicrophoneHealth</name>
    <message>
        <source>The selected microphone is returning silence. Another app (e.g. WhatsApp, Zoom, Teams) may have exclusive voice processing on this mic. Try switching input devices, or quit the other app.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Microphone engine could not be restarted after %1 attempts</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MixPipeline</name>
    <message>
        <source>The first %1 s are saved in %2.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Nothing could be saved.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording stopped: the disk is full. </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recording stopped: the recording could not be written (%1). </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The recording file %1 could not be created: the disk is full.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The recording file %1 could not be created: %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Write error: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Network</name>
    <message>
        <source>Too many redirects</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refused a redirect from https to %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Refused a redirect to %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The server&apos;s answer is too large (%1 bytes)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The server&apos;s answer is too large (over %1 bytes)</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PasskeyError</name>
    <message>
        <source>Passkey authorization failed: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Server returned invalid passkey options: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passkey sign-in was cancelled.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passkeys are not available on this device.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Unexpected server response: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You need to be signed in to manage passkeys.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passkey action was cancelled.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PasskeyManager</name>
    <message>
        <source>Invalid server URL</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PasskeyOperations</name>
    <message>
        <source>Invalid server URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No response</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your session expired — please sign in again.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not decode passkey: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not decode passkey list: %1</source>
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
    <name>PasskeyProtocol</name>
    <message>
        <source>the security key returned an unreadable attestation</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Begin response is not JSON</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Missing challenge_id</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Missing/invalid options blob</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Server returned HTTP %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Missing challenge</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Missing challenge in registration options</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Missing user.id in registration options</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PasskeysModel</name>
    <message>
        <source>Passkey</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Added %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Last used %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Never used</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remove passkey %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Adding passkey…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Add a passkey</source>
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
    <name>PendingRecordings</name>
    <message>
        <source>Left by a crash</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Damaged: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>not a WAV file</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the WAV header is damaged</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the video file has no index</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the video file needs rewriting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the video file could not be rewritten</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PendingRecordingsSection</name>
    <message>
        <source>NOT UPLOADED YET</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delete</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show in Folder</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delete this recording?</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>It was never uploaded: it is deleted from this computer and cannot be recovered.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PortalScreencast</name>
    <message>
        <source>The desktop&apos;s screen-sharing portal did not answer %1 in time.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The desktop&apos;s screen-sharing portal made no session.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The desktop shared no screen or window.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The desktop ended the screen sharing.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The screen sharing was closed before it started.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>RecorderError</name>
    <message>
        <source>No display found for system audio capture</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No microphone available</source>
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
    <name>RecordingFormat</name>
    <message>
        <source>Just now</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1m ago</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1h ago</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1d ago</source>
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
    <name>RecordingUploader</name>
    <message>
        <source>Sign in again to upload your recording.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not logged in</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not signed in — open the app menu and sign in again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>This recording is still being written or uploaded by another program: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign-in required — use Sign in with Browser below.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Session expired — sign in again, then tap Retry upload</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Invalid server URL</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed: the server&apos;s answer is too large</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed: the session could not be refreshed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sign-in required — sign in below, then tap Retry upload.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed: the server&apos;s answer was not understood (HTTP 200)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload cancelled</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed (HTTP %1): %2</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed (HTTP 401). Your sign-in expired — use the profile menu to sign in again, then Retry upload.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Upload failed (HTTP %1)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the connection to the service was lost</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the service refused the connection</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the service&apos;s address could not be found</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the service could not be reached</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>1 minute</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 minutes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 seconds</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the service did not answer within %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the network is not available</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>a secure connection to the service could not be made (%1)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>the connection to the service failed</source>
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
    <name>SSEConnectionStatus</name>
    <message>
        <source>Disconnected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connecting...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Error</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ScreenCaptureAccess</name>
    <message>
        <source>Screen sharing needs xdg-desktop-portal and a portal for your desktop (GNOME, KDE or wlroots).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen recording was allowed, but this running copy has not picked it up yet.

Quit Sorvelandrix Recorder completely (Ctrl+Q), open it again, then try again.

If needed: remove Sorvelandrix Recorder&apos;s screen-sharing permission in your desktop&apos;s privacy settings, then quit and reopen once more.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Your desktop has not allowed this copy of Sorvelandrix Recorder to record the screen.

1. Start recording again and choose a screen or window when your desktop asks, then press Share.
2. If nothing asks, make sure xdg-desktop-portal and your desktop&apos;s portal backend are running.
3. Quit this app completely (Ctrl+Q) and open it again.

If it still fails, reset the permission in a terminal: flatpak permission-reset com.sorvelandrix.recorder
then repeat steps 1–3.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ScreenCaptureTargetOption</name>
    <message>
        <source>Entire screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Chosen in the desktop&apos;s sharing dialog</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Main display</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Full screen (default)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Display </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Application</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Untitled window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Window</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ServerTranscriptManager</name>
    <message>
        <source>You</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Not logged in</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>SparkleUpdater</name>
    <message>
        <source>Checking for updates…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Checking the signature of %1…</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Downloading %1…</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>SpeechRecognizer</name>
    <message>
        <source>The speech grammar %1 does not exist</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The speech decoder refused its configuration</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not load the speech model in %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The speech decoder could not start</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No speech model for %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Recognition stopped before any speech was heard</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Speech ended without recognisable words</source>
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
    <message>
        <source>Updates not available in this build</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>In-app updates only work in the signed release from </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You&apos;re up to date</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 %2 is currently the newest version available.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>A new version of %1 is available!</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Later</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Update check failed</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>UpdateCheckError</name>
    <message>
        <source>it is not an RSS feed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>it has no version</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>it is for %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>it has no enclosure</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>its enclosure is not an HTTPS address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>its EdDSA signature is missing or malformed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>its enclosure has no length</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>its enclosure is larger than %1 MiB</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update feed address “%1” is not an HTTPS address.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server could not be reached (%1).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server did not answer in time.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server answered with HTTP status %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update feed is too large to be an appcast.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update feed could not be read: %1.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update server redirected to “%1”, which is not an HTTPS address.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update could not be downloaded (%1).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The downloaded update is longer than the %1 bytes the update feed gives</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The downloaded update is %1 bytes long, but the update feed gives %2 bytes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The downloaded update is not signed with this build&apos;s key: it was discarded.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The update could not be saved (%1).</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>HTTP status %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>VideoRecorder</name>
    <message>
        <source>DISPLAY is not set</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>X server has no screen %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>X error %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>MIT-SHM attach failed: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>GetImage failed: </source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>VideoRecorderError</name>
    <message>
        <source>Could not enumerate displays: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not start screen capture: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Could not set up video writer: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>VideoRecorder in invalid state: </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Permission denied — allow screen sharing for Sorvelandrix Recorder when your desktop asks, or in its privacy settings.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No display found for screen capture.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen sharing was cancelled.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>VideoRecorder is not recording.</source>
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
    <message>
        <source>1 recording not uploaded</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 recordings not uploaded</source>
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
